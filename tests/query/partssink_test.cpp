#include "zelstore/query/partssink.h"

#include <gtest/gtest.h>

#include "support/client.h"
#include "support/storefixture.h"
#include "zelstore/database/leveldbinstanceproxy.h"
#include "zelstore/database/masterdatabase.h"
#include "zelstore/query/runquery.h"
#include "zelstore/schema/eventquery.h"

namespace ZEL {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* actions[] = {"create", "delete", "rename", "modify"};

// Two databases with 300 rows each, of three actions in turn; ten have a live enrichment.
class PartsSinkTest : public testing::Test {
protected:
    static constexpr int rows = 300;
    // Behind all rows: it makes a part's range another one than its neighbours'.
    static constexpr const char* ended = R"(,"end_time":{"value":"2026-06-01T00:00:00.000Z"})";

    void SetUp() override {
        for (const char* folder : {"20260501", "20260502"}) {
            RecordBatch batch;
            for (int i = 0; i < rows; ++i)
                batch["p<begin_time>2026-05-01T10:00:00.000Z<sequence>" +
                      std::to_string(1000000000 + i) + "<object_type>file<action>" +
                      actions[i % 3]] = std::string("{\"n\":\"") + folder + " " + actions[i % 3] +
                                        std::to_string(i) + "\"}";
            ASSERT_EQ(LevelDbInstanceProxy(store_.Folder(folder)).Write(batch), hr::ok);
        }
        RecordBatch live;
        for (int i = 1; i < 30; i += 3)
            live["p<begin_time>2026-05-01T10:00:00.000Z<sequence>" +
                 std::to_string(1000000000 + i) +
                 "<object_type>file<action>delete<silent_sequence>1<silent_enrichment>0"] = "{}";
        ASSERT_EQ(LevelDbInstanceProxy(store_.Folder("20260501999")).Write(live), hr::ok);
        ASSERT_EQ(database.LoadExistingDatabases(), hr::ok);
        ASSERT_TRUE(stop.Create(wm::EventReset::automatic));
    }
    static std::string Part(int action, const std::string& more = "") {
        return R"({"begin_time":{"value":"2026-01-01T00:00:00.000Z"},"action":[")" +
               std::string(actions[action]) + "\"]" + more + "}";
    }
    static std::string Document(const std::string& parts, int limit = -1, bool noLive = false) {
        return R"({"event_query":{"limit_result_count":)" + std::to_string(limit) +
               (noLive ? R"(,"no_live_enriched_events":true)" : "") + R"(,"events":[)" + parts +
               "]}}";
    }
    HRESULT Ask(const std::string& document, test::RecordingCallback& heard) {
        return RunQuery(&database, test::Str(document).Get(), &heard, stop.Handle(), nullptr);
    }
    Texts Answer(const std::string& document) {
        test::RecordingCallback heard;
        EXPECT_EQ(Ask(document, heard), hr::ok);
        return heard.texts;
    }
    // What a sink for each part would give in a walk of its own.
    Texts AnswersOf(std::initializer_list<int> parts) {
        Texts all;
        for (const int part : parts)
            for (const std::string& text : Answer(Document(Part(part))))
                all.push_back(text);
        return all;
    }
    std::unique_ptr<QuerySink> Sink(int action, test::RecordingCallback& heard) {
        Schema::EventQuery query;
        query.FromJson(web::json::value::parse(Document(Part(action))));
        return QuerySink::Create(query.events.front(), {}, &heard);
    }

private:
    test::TempStore store_;

protected:
    ZelMasterDatabase database;
    wm::EventObject stop;
};

TEST_F(PartsSinkTest, EachPartComesAsOneBlockInTheDocumentsOrder) {
    test::RecordingCallback heard;
    EXPECT_EQ(Ask(Document(Part(2) + "," + Part(0) + "," + Part(2)), heard), hr::ok);
    EXPECT_EQ(heard.texts, AnswersOf({2, 0, 2}));
    EXPECT_EQ(heard.batches, (std::vector<std::size_t>{100, 100, 100, 100, 100, 100}));
    // Ranges of their own, and one that can't be made ready.
    EXPECT_EQ(Answer(Document(Part(0) + "," + Part(1, ended) + "," + Part(2, ended))),
              AnswersOf({0, 1, 2}));
    test::RecordingCallback broken;
    EXPECT_EQ(Ask(Document(Part(0) + "," + Part(1) + R"(,{"seq_num":1},)" + Part(2)), broken),
              hr::invalidArgument);
    EXPECT_EQ(broken.texts, AnswersOf({0, 1})) << "what was delivered stays delivered";
}

TEST_F(PartsSinkTest, LimitsCountOverAllPartsAsWithoutSharing) {
    for (const int limit : {0, 1, 5, 150, 199, 200, 201, 250, 600, 700})
        for (const bool noLive : {false, true})
            for (const int first : {0, 1, 3}) {  // nothing is of the last kind
                const int second = first == 1 ? 0 : 1;
                const std::string begin = Part(first) + "," + Part(second);
                test::RecordingCallback shared, alone;
                EXPECT_EQ(Ask(Document(begin + "," + Part(2), limit, noLive), shared), hr::ok);
                EXPECT_EQ(Ask(Document(Part(first) + "," + Part(second, ended) + "," + Part(2),
                                       limit, noLive),
                              alone),
                          hr::ok);
                EXPECT_EQ(shared.texts, alone.texts) << limit << noLive << first;
                EXPECT_EQ(shared.complete, alone.complete) << limit << noLive << first;
            }
}

TEST_F(PartsSinkTest, WhatIsKeptIsBoundedAndThePartThatHoldsMostWalksAlone) {
    test::RecordingCallback heard;
    const auto first = Sink(0, heard), large = Sink(1, heard), small = Sink(2, heard);
    small->SetLimit(3);
    PartsSink all({first.get(), large.get(), small.get()}, 4000);
    EXPECT_EQ(database.Scan("p", &all, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(first->GetMatchCount(), 200);
    EXPECT_TRUE(all.MustWalkAlone(1));
    EXPECT_FALSE(all.MustWalkAlone(2));
    EXPECT_EQ(all.Deliver(2, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(small->GetMatchCount(), 3);
    EXPECT_EQ(large->GetMatchCount(), 0);
}

TEST_F(PartsSinkTest, ACallbackThatRefusesGetsWhatItWouldGetFromWalks) {
    const auto batches = [this](const std::string& parts, std::size_t refused) {
        test::RecordingCallback heard;
        heard.onBatch = [&](std::size_t batch) {
            heard.batchAnswer = batch == refused ? hr::fail : hr::ok;
        };
        EXPECT_EQ(Ask(Document(parts), heard), hr::ok);
        return heard.batches;
    };
    for (const std::size_t refused : {1, 2, 3, 4})
        EXPECT_EQ(batches(Part(0) + "," + Part(1), refused),
                  batches(Part(0) + "," + Part(1, ended), refused))
            << refused;
}

TEST_F(PartsSinkTest, AnAbortEndsTheQueryAlsoWhileKeptRowsGoOut) {
    test::RecordingCallback heard;
    heard.onBatch = [&](std::size_t batch) {
        if (batch == 3)
            database.AbortScans();
    };
    EXPECT_EQ(Ask(Document(Part(0) + "," + Part(1) + "," + Part(2)), heard), hr::aborted);
    EXPECT_EQ(heard.batches.size(), 3u) << "the second database's are left out";
}

}  // namespace
}  // namespace ZEL
