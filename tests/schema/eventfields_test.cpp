#include "zelstore/schema/eventfields.h"

#include "parsing.h"
#include "zelstore/query/machinepaths.h"

namespace ZEL::Schema {
namespace {

FilterMap Extract(const std::string& json, bool forQuery = true) {
    FilterMap fields;
    EXPECT_EQ(ExtractKeyFields(Parse<Event>(json), forQuery, &MachinePaths(), fields), hr::ok)
        << json;
    return fields;
}

// "value:operator[!]" of a field, with ! for a condition in which case matters.
std::vector<std::string> Conditions(const FilterMap& fields, const std::string& name) {
    std::vector<std::string> texts;
    const auto field = fields.find(name);
    if (field != fields.end())
        for (const auto& [value, op] : field->second)
            texts.push_back(value + ":" + OperatorTypes().Name(op.op) +
                            (op.caseSensitive ? "!" : ""));
    return texts;
}

using Texts = std::vector<std::string>;

TEST(KeyFields, HoldTheirListsInOrder) {
    const FilterMap fields = Extract(
        R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["p"]},
            "sha2":{"value":["h2","h1","h2"],"operator":{"value":"starts_with","case_insensitive":false}}},
            "target":{"object_type":"kernel_object","name":{"value":["n"]}}},
            "action":["open","create"],"type_id":{"value":[10,9]}})");
    const std::map<std::string, Texts> expected = {
        {"object_type", {"kernel_object:equals!"}},
        {"action", {"create:equals!", "open:equals!"}},
        {"type_id", {"10:equals", "9:equals"}},
        {"actor_hash", {"h1:starts_with!", "h2:starts_with!"}},
        {"actor_path_name", {"p:equals"}},
        {"target_path_name", {"n:equals"}},
        {"target_type_id", {"1:equals"}},
    };
    EXPECT_EQ(fields.size(), expected.size());
    for (const auto& [name, conditions] : expected)
        EXPECT_EQ(Conditions(fields, name), conditions) << name;

    const FilterMap empty = Extract(
        R"({"artifacts":{"target":{"object_type":"url","text":{"value":[]}}},"action":[]})");
    EXPECT_FALSE(empty.contains("action")) << "an empty list counts as absent";
    EXPECT_TRUE(empty.contains("target_url_text")) << "a pair without values is not absent";
}

TEST(KeyFields, WildcardsTurnEqualsIntoAPatternForTheRestOfTheList) {
    const auto path = [](const std::string& values, const char* op) {
        return Conditions(
            Extract(
                R"({"artifacts":{"target":{"object_type":"file","path":{"operator":{"value":")" +
                    std::string(op) + R"("},"value":)" + values + "}}}}",
                false),
            "target_path_name");
    };
    EXPECT_EQ(path(R"(["a*","b?"])", "equals"), (Texts{"a.*:fits_pattern", "b?:fits_pattern"}));
    EXPECT_EQ(path(R"(["b","a*","b"])", "equals"), (Texts{"a.*:fits_pattern", "b:equals"}));
    EXPECT_EQ(path(R"(["a*"])", "contains"), Texts{"a*:contains"});
    EXPECT_EQ(WildcardToPattern(R"(c:\a?.{x}[1](y)|+$^*)"),
              R"(c:\\a.{1}\.\{x\}\[1\]\(y\)\|\+\$\^.*)");
}

// A machine on which every path stands twice.
class Doubling final : public IPathExpander {
public:
    HRESULT ExpandPath(const Text& path, bool isPattern, std::set<Text>& out) override {
        out = {path, path + (isPattern ? "3" : "2")};
        return result;
    }
    HRESULT ExpandRegistryPath(const Text& path, bool, std::set<Text>& out) override {
        out = {"R" + path};
        return result;
    }
    HRESULT result = hr::ok;
};

TEST(KeyFields, PathsOfQueriesAreExpanded) {
    Doubling machine;
    HRESULT result = hr::ok;
    const auto paths = [&](const std::string& type, bool forQuery = true) {
        FilterMap fields;
        const std::string json = R"({"artifacts":{"target":{"object_type":")" + type +
                                 R"(","path":{"value":["a*","b"]}}}})";
        result = ExtractKeyFields(Parse<Event>(json), forQuery, &machine, fields);
        return Conditions(fields, "target_path_name");
    };
    const Texts asTheyAre = {"a.*:fits_pattern", "b:fits_pattern"};
    EXPECT_EQ(paths("file"), (Texts{"a.*:fits_pattern", "a.*2:fits_pattern", "b:fits_pattern",
                                    "b3:fits_pattern"}));
    EXPECT_EQ(paths("reg_key").front(), "Ra.*:fits_pattern");
    EXPECT_EQ(paths("file", false).size(), 2u) << "records are not expanded";
    machine.result = hr::fail;
    EXPECT_EQ(paths("file"), asTheyAre);
    EXPECT_EQ(result, hr::ok);
    paths("reg_value");
    EXPECT_EQ(result, hr::fail);
}

}  // namespace
}  // namespace ZEL::Schema
