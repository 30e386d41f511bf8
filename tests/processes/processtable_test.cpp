#include "processes/processtable.h"

#include <gmock/gmock.h>

#include "zel/tree/treeform.h"

namespace zel {
namespace {

// A process as an event tells it: "uid,pid,program"; what is empty is not told.
std::string ArtifactOf(const std::string& told) {
    const std::size_t first = told.find(','), second = told.find(',', first + 1);
    const std::string uid = told.substr(0, first), pid = told.substr(first + 1, second - first - 1),
                      program = told.substr(second + 1);
    std::string json = R"({"object_type":"process")";
    if (!uid.empty())
        json += R"(,"uid":{"value":[")" + uid + R"("]})";
    if (!pid.empty())
        json += R"(,"pid":{"value":[)" + pid + "]}";
    if (!program.empty())
        json += R"(,"path":{"value":["C:\\)" + program + R"("]})";
    return json + "}";
}

struct Told {
    const char* second;  // of one minute
    const char* action;
    const char* actor;
    const char* target;
    const char* computer = "pc";
};

void AddTo(ProcessTable& table, const Told& told) {
    RecordReader reader;
    const std::string record = R"({"artifacts":{"actor":)" + ArtifactOf(told.actor) +
                               R"(,"target":)" + ArtifactOf(told.target) + R"(},"action":[")" +
                               told.action + R"("],"begin_time":{"value":"2026-01-01T00:00:)" +
                               told.second + R"(.000Z"},"source":{"computer":")" + told.computer +
                               R"("}})";
    ASSERT_TRUE(reader.Read(record)) << record;
    ASSERT_TRUE(table.Add(reader));
}

// The tree around each process with that number: a program for each, a blank for each level, and *
// for the process itself, + for one that has ended.
std::vector<std::string> TreesOf(const std::vector<Told>& events, std::uint64_t pid) {
    ProcessTable table;
    for (const Told& told : events)
        AddTo(table, told);
    table.Link();
    std::vector<std::string> trees;
    for (const std::uint32_t node : table.WithPid(pid)) {
        std::string tree;
        for (const TreeLine& line : TreeOf(table, node)) {
            const ProcessNode& process = table.All()[line.node];
            tree += (tree.empty() ? "" : "/") + std::string(line.depth, ' ');
            tree += line.relation == TreeLine::Relation::self ? "*" : "";
            tree += process.path.substr(process.path.rfind('\\') + 1);
            tree += process.end != ProcessNode::never ? "+" : "";
        }
        trees.push_back(tree);
    }
    return trees;
}

TEST(ProcessTable, TellsWhoBeganWhom) {
    const struct {
        const char* what;
        std::vector<Told> events;
        std::uint64_t pid;
        std::vector<std::string> trees;
    } cases[] = {
        {"by identifiers, whatever the order and the numbers",
         {{"30", "launch", "B,2,b", "C,3,c"},
          {"20", "launch", "A,1,a", "B,9,b"},
          {"40", "launch", "B,2,b", "D,3,d"},
          {"50", "terminate", "B,9,b", "B,9,b"}},
         9,
         {"a/ *b+/  c/  d"}},
        {"by numbers, of which one was used twice",
         {{"10", "launch", ",1,a", ",5,old"},
          {"20", "launch", ",5,old", ",6,x"},
          {"30", "launch", ",1,a", ",5,new"},
          {"40", "launch", ",5,new", ",7,y"}},
         5,
         {"a/ *old/  x", "a/ *new/  y"}},
        {"by a number that had ended: another one has it by then",
         {{"10", "launch", ",1,a", ",5,b"},
          {"20", "terminate", ",5,b", ",5,b"},
          {"30", "launch", ",5,b", ",6,x"}},
         5,
         {"*b/ x", "a/ *b+"}},
        {"without a time, which is near to none",
         {{"99", "launch", ",1,a", ",5,b"}, {"10", "launch", ",1,a", "B,5,b"}},
         5,
         {"a/ *b", "a/ *b"}},
        {"by a number that another program has",
         {{"10", "launch", ",1,a", ",5,b"}, {"30", "launch", ",5,other", ",6,x"}},
         6,
         {"other/ *x"}},
        {"on each machine by itself",
         {{"10", "launch", ",1,a", ",5,b"},
          {"20", "launch", ",1,a", ",5,b", "pc2"},
          {"30", "launch", ",5,b", ",6,x", "pc2"}},
         5,
         {"a/ *b", "a/ *b/  x"}},
        {"where two logs tell of the same, one with identifiers",
         {{"10", "launch", ",1,a", ",5,b"},
          {"10", "launch", "A,1,a", "B,5,b"},
          {"20", "launch", ",5,b", ",6,x"},
          {"21", "launch", "B,5,b", "X,6,x"},
          {"30", "terminate", ",6,x", ",6,x"}},
         5,
         {"a/ *b/  x+"}},
        {"where the launch of the first is missing, but not its end",
         {{"10", "launch", "A,1,a", ",5,b"},
          {"20", "launch", ",1,a", ",6,x"},
          {"30", "terminate", ",1,a", ",1,a"}},
         1,
         {"*a+/ b/ x"}},
        {"where nothing tells of the maker", {{"10", "launch", ",,", "B,2,b"}}, 2, {"*b"}},
        {"where events contradict each other",
         {{"10", "launch", "B,2,b", "A,1,a"}, {"20", "launch", "A,1,a", "B,2,b"}},
         2,
         {"a/ *b"}},
        {"not of what is no launch", {{"10", "open", ",1,a", ",2,b"}}, 2, {}},
    };
    for (const auto& each : cases)
        EXPECT_EQ(TreesOf(each.events, each.pid), each.trees) << each.what;
}

TEST(ProcessTable, FindsTheProcessOfAnEvent) {
    ProcessTable table;
    AddTo(table, {"10", "launch", ",1,a", "{aB},5,b"});
    AddTo(table, {"30", "launch", ",1,a", ",5,c"});
    table.Link();
    EXPECT_EQ(table.WithUid("{AB}"), table.WithUid("ab"));
    EXPECT_EQ(table.WithUid("ab").size(), 1U);
    EXPECT_EQ(table.WithUid("").size(), 0U);
    const auto programAt = [&](const char* second, const char* actor) {
        RecordReader event;
        EXPECT_TRUE(event.Read(R"({"artifacts":{"actor":)" + ArtifactOf(actor) +
                               R"(,"target":{"object_type":"file"}},"action":["open"],)"
                               R"("begin_time":{"value":"2026-01-01T00:00:)" +
                               second + R"(.000Z"},"source":{"computer":"pc"}})"));
        const auto node = table.Of(event);
        return node ? std::string(table.All()[*node].path) : "";
    };
    EXPECT_EQ(programAt("20", ",5,"), "C:\\b");
    EXPECT_EQ(programAt("40", ",5,"), "C:\\c");
    EXPECT_EQ(programAt("05", ",5,"), "");
    EXPECT_EQ(programAt("40", "AB,5,"), "C:\\b");
}

TEST(ProcessTable, TakesNoMoreThanItsRoom) {
    ProcessTable table(1000);
    RecordReader event;
    ASSERT_TRUE(event.Read(
        R"({"artifacts":{"target":{"object_type":"process","pid":{"value":[1]}}},"action":["launch"],"begin_time":{"value":"2026-01-01T00:00:00.000Z"}})"));
    int taken = 0;
    while (table.Add(event) && taken < 100)
        ++taken;
    EXPECT_THAT(taken, testing::AllOf(testing::Ge(1), testing::Le(10)));
    table.Link();
    EXPECT_FALSE(table.All().empty());
}

// As deep as a store may make it.
TEST(TreeForms, AreWholeHoweverDeep) {
    constexpr int depth = 20000;
    ProcessTable table;
    for (int i = 1; i <= depth; ++i) {
        const std::string actor = "U" + std::to_string(i) + ",,p",
                          target = "U" + std::to_string(i + 1) + ",7,q";
        AddTo(table, {"00", "launch", actor.c_str(), target.c_str()});
    }
    AddTo(table, {"01", "launch", "U2,,q", "V,,v"});
    table.Link();
    const auto tree = TreeOf(table, table.WithUid("U2").front());
    EXPECT_EQ(tree.size(), depth + 2U);
    const std::string json = TreeAsJson(table, tree);
    EXPECT_EQ(std::count(json.begin(), json.end(), '{'), std::count(json.begin(), json.end(), '}'));
    EXPECT_TRUE(json.ends_with("}]}]}")) << json.substr(json.size() - 100);
    const std::string text = DrawnTree(table, std::span(tree).first(3), 60);
    EXPECT_THAT(text, testing::HasSubstr("└─ ► q"));
    EXPECT_THAT(
        TreeAsLines(table, std::span(tree).last(1)),
        testing::HasSubstr(R"("start":"2026-01-01T00:00:01.000Z","depth":2,"parent_uid":"U2")"));
}

}  // namespace
}  // namespace zel
