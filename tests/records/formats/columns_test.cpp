#include <gmock/gmock.h>

#include <fstream>

#include "records/recordreader.h"
#include "zelstore/keys/keyfield.h"

namespace zel {
namespace {

TEST(RecordColumns, AreReadFromARecord) {
    RecordReader reader;
    ASSERT_TRUE(reader.Read(
        R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["d","b","c"]},"pid":{"value":[7]}},"target":{"object_type":"url","text":{"value":["x.org"]}}},"action":["request"],"begin_time":{"value":"T"},"seq_num":5,"unmapped":{"User":"ann"},"source":{"format":"evtx","channel":"Security","event_id":4624,"computer":"pc"}})"));
    const std::pair<const char*, const char*> expected[] = {
        {"time", "T"},         {"seq", "5"},     {"object", "url"},
        {"action", "request"}, {"user", "ann"},  {"actor_path", "b"},
        {"actor_pid", "7"},    {"url", "x.org"}, {"source", "Security 4624"},
        {"computer", "pc"},
    };
    for (const auto& [name, value] : expected)
        EXPECT_EQ(reader.Value(*FindColumn(name)), value) << name;
    for (const char* name : {"key", "target_path", "dst_port", "reg_data"})
        EXPECT_EQ(reader.Value(*FindColumn(name)), std::nullopt) << name;
    EXPECT_THAT(std::string(reader.Value(*FindColumn("event")).value()),
                testing::StartsWith(R"({"artifacts")"));
}

TEST(RecordColumns, AreThoseOfTheManualAndOfKeys) {
    std::ifstream file(ZEL_MANUAL "/events.md");
    const std::string manual(std::istreambuf_iterator<char>(file), {});
    for (const Column& column : Columns()) {
        EXPECT_THAT(manual, testing::HasSubstr("| `" + std::string(column.name) + "` | "));
        if (!column.keyField.empty()) {
            EXPECT_TRUE(ZEL::FindKeyField(column.keyField)) << column.name;
        }
    }
}

}  // namespace
}  // namespace zel
