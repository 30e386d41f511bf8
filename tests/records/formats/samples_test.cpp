#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "records/formats/readall.h"

namespace zel {
namespace {

// A sample, and beside it what becomes of it, one line for each event. The name of the sample is
// that of the format.
struct Sample {
    const char* format;
    const char* file;
};

class Samples : public testing::TestWithParam<Sample> {
protected:
    static std::vector<std::string> Lines(const std::string& name) {
        std::ifstream file(ZEL_RECORD_DATA "/" + name);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        EXPECT_FALSE(lines.empty()) << name;
        return lines;
    }
};

class JsonSamples : public Samples {};

TEST_P(Samples, BecomeRecords) {
    const auto [format, file] = GetParam();
    ReadAll read(format);
    read.File(ZEL_RECORD_DATA "/" + std::string(file));
    const std::vector<std::string> expected = Lines(std::string(file) + ".expected");
    ASSERT_EQ(read.items.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(read.items[i], expected[i]);
}

// The format is found by itself, whichever are asked ahead of it.
TEST_P(Samples, AreKnown) {
    const auto [format, file] = GetParam();
    for (const std::string& text : Lines(file)) {
        JsonFields json;
        SourceFields fields;
        SourceLine line{text, 1, json.Read(text, &fields) ? &fields : nullptr};
        const auto known = std::find_if(Formats().begin(), Formats().end(), [&](const Format& one) {
            return one.knows != nullptr && one.knows(line);
        });
        ASSERT_NE(known, Formats().end()) << text;
        EXPECT_EQ(known->name, format) << text;
    }
}

// Nothing of an event is lost: each value of the source is somewhere in the record.
TEST_P(JsonSamples, KeepEveryValue) {
    const auto [format, file] = GetParam();
    MappingOptions options;
    options.keepsAll = true;
    ReadAll read(format, options);
    for (const std::string& text : Lines(file)) {
        read.items.clear();
        read.Line(text);
        std::string records;
        for (const std::string& item : read.items)
            records += item;
        JsonFields json;
        SourceFields fields;
        ASSERT_TRUE(json.Read(text, &fields));
        for (const SourceField& field : fields.All()) {
            const auto dot = field.text.rfind('\\');
            const std::string value(field.text.substr(dot == field.text.npos ? 0 : dot + 1));
            // Numbers, times, identifiers and the names of protocols are written in another form.
            const bool isConverted = value == "tcp" || value.starts_with("REG_") ||
                                     value.find_first_not_of("0123456789abcdefx{}-") == value.npos;
            if (field.kind == SourceField::Kind::text && !isConverted) {
                EXPECT_THAT(records, testing::HasSubstr(value)) << field.name;
            }
        }
    }
}

// What can't be read is told with its line, and the lines behind it are read.
TEST(Refused, IsTold) {
    struct Case {
        const char* format;
        const char* line;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {"ecs", "no JSON", {"1: refused: no JSON object"}},
        {"ecs",
         R"({"@timestamp":"yesterday","event":{"category":"file"},"file":{"path":"/a"}})",
         {"1: refused: no time that can be read"}},
        {"ocsf",
         R"({"class_uid":1001,"activity_id":1,"file":{"path":"/a"},"time":1e30})",
         {"1: refused: no time that can be read"}},
        {"ocsf", R"({"class_uid":-1,"activity_id":1,"time":0})", {"1: no rule:  "}},
        {"osquery", R"({"hostIdentifier":"a","snapshot":5})", {"1: refused: no list of rows"}},
        {"osquery", R"({"hostIdentifier":"a","snapshot":[]})", {}},
        {"osquery",
         R"({"hostIdentifier":"a","unixTime":1,"snapshot":[7,{"target_path":"/a","action":"UPDATED"}]})",
         {"1: refused: a row that is no object", "1: {"}},
        {"osquery",
         R"({"hostIdentifier":"a","columns":{"target_path":"/a","action":"UPDATED"}})",
         {"1: refused: no time that can be read"}},
    };
    for (const Case& one : cases) {
        ReadAll read(one.format);
        read.Line(one.line);
        ASSERT_EQ(read.items.size(), one.expected.size()) << one.line;
        for (std::size_t i = 0; i < one.expected.size(); ++i)
            EXPECT_THAT(read.items[i], testing::StartsWith(one.expected[i])) << one.line;
        read.Line(one.line);
        EXPECT_EQ(read.items.size(), 2 * one.expected.size());
    }
}

// The time for an event with very many fields does not grow with their square.
TEST(Columns, MayBeMany) {
    std::string line =
        R"({"hostIdentifier":"a","unixTime":1,"columns":{"target_path":"/a","action":"")";
    for (int i = 0; i < 90000; ++i)
        line += ",\"c" + std::to_string(i) + "\":1";
    ReadAll read("osquery");
    read.Line(line + "}}");
    EXPECT_THAT(read.items, testing::ElementsAre(testing::HasSubstr(R"("c89999":1)")));
}

// The manual's examples are parts of the samples, whose lines it breaks.
TEST(Manual, ShowsSamples) {
    const auto read = [](const std::string& name) {
        std::ifstream file(name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const auto without = [](std::string text, const std::string& what) {
        for (auto at = text.find(what); at != text.npos; at = text.find(what, at))
            text.erase(at, what.size());
        return text;
    };
    const std::string manual = read(ZEL_MANUAL "/events.md");
    for (const char* name : {"ecs.ndjson", "ocsf.ndjson", "osquery.ndjson", "audit.log"}) {
        const std::string path = ZEL_RECORD_DATA "/" + std::string(name);
        const std::string format(name, std::string_view(name).find('.'));
        const std::string samples = without(read(path) + read(path + ".expected"), "\n");
        std::size_t at = manual.find("(`" + format + "`)\n");
        ASSERT_NE(at, manual.npos) << format;
        for (int example = 0; example < 2; ++example) {
            at = manual.find("\n\n    ", at);
            ASSERT_NE(at, manual.npos) << format;
            const std::size_t end = manual.find("\n\n", at + 2);
            const std::string text = manual.substr(at, end - at);
            EXPECT_THAT(samples, testing::HasSubstr(without(without(text, "\n    "), "\n")));
            at = end;
        }
    }
}

const Sample jsonSamples[] = {
    {"ecs", "ecs.ndjson"}, {"ocsf", "ocsf.ndjson"}, {"osquery", "osquery.ndjson"}};
const Sample lineSamples[] = {{"audit", "audit.log"}};
const auto name = [](const auto& test) { return test.param.format; };

INSTANTIATE_TEST_SUITE_P(Json, Samples, testing::ValuesIn(jsonSamples), name);
INSTANTIATE_TEST_SUITE_P(Json, JsonSamples, testing::ValuesIn(jsonSamples), name);
INSTANTIATE_TEST_SUITE_P(Lines, Samples, testing::ValuesIn(lineSamples), name);

}  // namespace
}  // namespace zel
