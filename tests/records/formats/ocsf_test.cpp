#include "records/formats/ocsf.h"

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "records/formats/readall.h"

namespace zel {
namespace {

using testing::HasSubstr;

// All of a record but where it came from.
std::multimap<std::string, std::string> Facts(const std::string& record) {
    JsonFields json;
    SourceFields fields;
    EXPECT_TRUE(json.Read(record, &fields)) << record;
    std::multimap<std::string, std::string> facts;
    for (const SourceField& field : fields.All()) {
        if (!field.name.starts_with("unmapped") && !field.name.starts_with("source"))
            facts.emplace(field.name, field.text);
    }
    return facts;
}

std::string Write(const std::string& record) {
    OcsfWriter writer;
    std::string out;
    EXPECT_TRUE(writer.Write(record, &out)) << writer.Error();
    return out;
}

std::string Read(const std::string& event) {
    ReadAll read("ocsf");
    read.Line(event);
    EXPECT_EQ(read.items.size(), 1U) << event;
    return read.items.at(0).substr(read.items.at(0).find('{'));
}

// What is written is read back as the same, for all that the samples hold.
TEST(Ocsf, RoundTripOfSamples) {
    int records = 0;
    for (const auto& [format, file] :
         {std::pair("ecs", "ecs.ndjson"), std::pair("ocsf", "ocsf.ndjson"),
          std::pair("osquery", "osquery.ndjson"), std::pair("audit", "audit.log")}) {
        ReadAll read(format);
        read.File(std::string(ZEL_RECORD_DATA "/") + file);
        for (const std::string& item : read.items) {
            const auto begin = item.find('{');
            if (begin == item.npos)
                continue;
            const std::string record = item.substr(begin);
            EXPECT_EQ(Facts(record), Facts(Read(Write(record)))) << record;
            ++records;
        }
    }
    EXPECT_GT(records, 50);
}

struct Case {
    const char* target;
    const char* action;
    const char* expected;  // a part of the event
};

TEST(Ocsf, WritesEachObjectAndAction) {
    const Case cases[] = {
        {R"("object_type":"directory","path":{"value":["/a"]})", "create", R"("type_uid":100101)"},
        {R"("object_type":"file","path":{"value":["/a"]})", "scan", R"("activity_name":"scan")"},
        {R"("object_type":"file","path":{"value":["/a"]})", "generic", R"("type_uid":100199)"},
        {R"("object_type":"network","dst_ip":{"value":["::1"]})", "connect",
         R"("type_uid":400101)"},
        {R"("object_type":"network","src_ip":{"value":["::1"]},"direction_id":{"value":[1]})",
         "accept", R"("direction_id":1)"},
        {R"("object_type":"reg_value","path":{"value":["HKEY_USERS\\a\\b"]},"name":{"value":["b"]},"type_id":4)",
         "set",
         R"("reg_value":{"name":"b","path":"HKEY_USERS\\a","type":"REG_DWORD","type_id":2})"},
        {R"("object_type":"reg_value","path":{"value":["HKEY_USERS\\a"]},"type_id":1)", "delete",
         R"("path":"HKEY_USERS\\a")"},
        {R"("object_type":"session","id":{"value":[7]},"session_state":["logged-off"])", "logoff",
         R"("session":{"uid":"7"})"},
        {R"("object_type":"kernel_object","name":{"value":["\\pipe"]})", "connect",
         R"("class_uid":0)"},
        {R"("object_type":"service","name":{"value":["s"]},"start_id":2)", "create", "raw_data"},
    };
    for (const Case& one : cases) {
        const std::string record =
            std::string(R"({"artifacts":{"target":{)") + one.target + R"(}},"action":[")" +
            one.action + R"("],"begin_time":{"value":"2026-03-02T09:15:00.123Z"},"seq_num":5})";
        const std::string event = Write(record);
        EXPECT_THAT(event, HasSubstr(one.expected));
        EXPECT_THAT(event, HasSubstr(R"("time":1772442900123)"));
        auto expected = Facts(record), got = Facts(Read(event));
        got.erase("type_id.value");
        EXPECT_EQ(expected, got) << event;
    }
}

// What the schema has no place for is in the event all the same.
TEST(Ocsf, LosesNothing) {
    const std::string event =
        Write(R"({"artifacts":{"target":{"object_type":"file","path":{"value":["/a","/b"]},)"
              R"("state":{"state":"exists"}}},"action":["open","close"],)"
              R"("begin_time":{"value":"2026-03-02T09:15:00.000Z"},"mine":{"x":[1,2]},)"
              R"("unmapped":{"winlog.opcode":"Info"},"source":{"format":"ecs","computer":"pc"}})");
    EXPECT_THAT(event, HasSubstr(R"("unmapped":{"record.artifacts.target.path.value":["/a","/b"],)"
                                 R"("record.artifacts.target.state.state":"exists",)"
                                 R"("record.action":["open","close"],)"
                                 R"("record.mine.x":[1,2],"winlog.opcode":"Info"})"));
    EXPECT_THAT(event, HasSubstr(R"("device":{"hostname":"pc","type_id":0})"));
}

TEST(Ocsf, RefusesWhatIsNoRecord) {
    OcsfWriter writer;
    std::string out = "before";
    for (const char* bad :
         {"", "[]", "{", R"({"artifacts":{}})", R"({"begin_time":{"value":"yesterday"}})"}) {
        EXPECT_FALSE(writer.Write(bad, &out)) << bad;
        EXPECT_FALSE(writer.Error().empty());
    }
    EXPECT_EQ(out, "before");
}

}  // namespace
}  // namespace zel
