#include "zelstore/query/querysink.h"

#include <gtest/gtest.h>

#include "support/client.h"
#include "support/storefixture.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"
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
}  // namespace ZEL
