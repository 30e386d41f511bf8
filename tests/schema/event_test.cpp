#include "zelstore/schema/event.h"

#include "parsing.h"
#include "zelstore/query/timerange.h"
#include "zelstore/schema/eventquery.h"

namespace ZEL::Schema {
namespace {

TEST(Event, ReadsAndWrites) {
    EXPECT_EQ(RoundTrip<Event>("{}"), R"({"artifacts":{},"filter":"record"})");
    EXPECT_EQ(RoundTrip<Event>(R"({"seq_num":0,"event_count":0,"filter":"Record"})"),
              R"({"artifacts":{},"filter":"submit"})");
    EXPECT_EQ(
        RoundTrip<Event>(
            R"({"enable":false,"seq_num":5,"event_count":2,"ref_uid":{},"type_id":{"value":[1]},
                      "begin_time":{"value":"t"},"action":["create","load"],
                      "artifacts":{"target":{"object_type":"url"},"actor":{"object_type":"process"}}})"),
        R"({"artifacts":{"actor":{"object_type":"process"},"target":{"object_type":"url"}},)"
        R"("action":["create","load"],"begin_time":{"value":"t"},"type_id":{"value":[1]},)"
        R"("filter":"record","ref_uid":{"value":""},"event_count":2,"seq_num":5,"enable":false})");
    Event event = Parse<Event>(R"({"enable":true,"action":["create"]})");
    event.FromJson(Json("{}"));
    EXPECT_EQ(Write(event), R"({"artifacts":{},"filter":"record","enable":false})")
        << "that a flag was given once stays known";
}

TEST(EventQuery, ReadsItsDocument) {
    EXPECT_EQ(RoundTrip<EventQuery>("{}"),
              R"({"event_query":{"limit_result_count":-1,"include_enrichments":false,)"
              R"("no_live_enriched_events":false}})");
    const std::string full =
        R"({"event_query":{"command_uid":"u","events":[{"artifacts":{},"filter":"record",)"
        R"("seq_num":1}],"limit_result_count":3,"include_enrichments":true,)"
        R"("no_live_enriched_events":true}})";
    EXPECT_EQ(RoundTrip<EventQuery>(full), full);
    const EventQuery lost = Parse<EventQuery>(
        R"({"event_query":{"events":[{"artifacts":{"target":{"object_type":"event"}}}]}})");
    EXPECT_EQ(lost.events.at(0).target, nullptr) << "an object without a class sets no condition";
}

TEST(TimeRange, BecomesAClosedRange) {
    constexpr const char* t = "2020-01-01T00:00:00.000Z";
    constexpr const char* before = "2019-12-31T23:59:59.999Z";
    constexpr const char* after = "2020-01-01T00:00:00.001Z";
    constexpr const char* zero = "1601-01-01T00:00:00.000Z";
    const struct {
        const char* beginOp;
        const char* endOp;  // null: no end_time
        HRESULT result;
        const char* begin;
        const char* end;
    } rows[] = {
        {"", nullptr, hr::ok, t, ""},
        {"greater_than", nullptr, hr::ok, after, ""},
        {"greater_than_or_equal", "less_than", hr::ok, t, before},
        {"greater_than", "less_than_or_equal", hr::ok, after, t},
        {"", "", hr::ok, t, t},
        {"less_than", "greater_than", hr::ok, zero, before},  // the end is replaced
        {"equals", nullptr, hr::invalidArgument, t, ""},
        {"", "greater_than", hr::invalidArgument, t, t},
    };
    const auto pair = [&](const char* op) {
        return std::string("{\"value\":\"") + t + "\"" +
               (*op != '\0' ? std::string(",\"operator\":{\"value\":\"") + op + "\"}" : "") + "}";
    };
    for (const auto& row : rows) {
        std::string json = "{\"begin_time\":" + pair(row.beginOp);
        if (row.endOp != nullptr)
            json += ",\"end_time\":" + pair(row.endOp);
        Event event = Parse<Event>(json + "}");
        EXPECT_EQ(NormaliseTimeRange(event), row.result) << json;
        EXPECT_EQ(event.begin_time->value, row.begin) << json;
        EXPECT_EQ(event.end_time ? event.end_time->value : "", row.end) << json;
    }
    Event bad = Parse<Event>(R"({"begin_time":{"value":"x","operator":{"value":"greater_than"}}})");
    EXPECT_EQ(NormaliseTimeRange(bad), hr::timeTextLength);
}

}  // namespace
}  // namespace ZEL::Schema
