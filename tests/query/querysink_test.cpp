#include "zelstore/query/querysink.h"

#include <gtest/gtest.h>

#include "support/client.h"
#include "support/storefixture.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"
#include "zelstore/query/resulttext.h"
#include "zelstore/query/runquery.h"

namespace ZEL {
namespace {

// Rows that no host could have inserted.
TEST(QuerySink, ARowThatIsNoTextIsPassedOverAndNotResumedFrom) {
    const test::TempStore store;
    const auto receive = [](int number) {
        return "r<receive_time>2026-11-12T10:00:00.000Z<sequence>000000000" +
               std::to_string(number);
    };
    ASSERT_EQ(LevelDbInstanceProxy(store.Folder("20261112"))
                  .Write({{"p1", R"({"n":1})"},
                          {"p2", "{\"n\":\"\xFF\"}"},
                          {receive(1), R"({"event_pkey":"p1"})"},
                          {receive(2), R"({"event_pkey":"p2"})"}}),
              hr::ok);
    ZelMasterDatabase database;
    ASSERT_EQ(database.LoadExistingDatabases(), hr::ok);
    test::RecordingCallback heard;
    EXPECT_EQ(
        RunQuery(
            &database,
            test::Str(R"({"event_query":{"events":[{"receive_time":{"value":"2000"}}]}})").Get(),
            &heard, nullptr, nullptr),
        hr::ok);
    EXPECT_EQ(heard.texts, std::vector<std::string>{R"({"n":1,"enriched_data":null})"});
    ASSERT_EQ(heard.cursors.size(), 1u);
    EXPECT_EQ(heard.cursors[0].second, 1);
}

}  // namespace
// Whether it is read the short way or as any JSON.
TEST(ReceiveRow, IsReadAsJson) {
    const struct {
        const char* value;
        const char* key;  // null: it is none
        const char* enrichment;
    } cases[] = {
        {R"({"event_pkey":"p1"})", "p1", "null"},
        {R"({"event_pkey":"C:\\a\"b<\u0041\/\né"})", "C:\\a\"b<A/\né", "null"},
        {R"({"event_pkey":"C:\\a\"b"})", "C:\\a\"b", "null"},
        {R"({ "event_pkey" : "p" } )", "p", "null"},
        {R"({"event_pkey":"p","x":"y"})", "p", "null"},
        {R"({"event_pkey":"p","event_enrichment":{"a":"b"}})", "p", R"({"a":"b"})"},
        {R"({"event_pkey":"a"b"})", nullptr, ""},
        {R"({"event_pkey":"a\"})", nullptr, ""},
        {R"({"event_pkey":"a\x"})", nullptr, ""},
        {R"({"event_pkey":1})", nullptr, ""},
        {R"({"other":"p"})", nullptr, ""},
        {"", nullptr, ""},
    };
    for (const auto& one : cases) {
        ReceiveRow row;
        ASSERT_EQ(Succeeded(ParseReceiveRow(one.value, &row)), one.key != nullptr) << one.value;
        if (one.key == nullptr)
            continue;
        EXPECT_EQ(row.eventKey, one.key);
        EXPECT_EQ(row.enrichment, one.enrichment);
    }
}

}  // namespace ZEL
