#include <gtest/gtest.h>

#include "support/client.h"
#include "support/storefixture.h"

namespace ZEL {
namespace {

using test::RecordingCallback;
using test::Str;

// A store with five file events, one a second from 10:00:00 on, as a host reaches it.
class QueryTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(store_->Initialize(), hr::ok);
        AddEvents(5);
    }
    void TearDown() override {
        EXPECT_EQ(store_->Stop(), hr::ok);
        EXPECT_EQ(store_->Shutdown(), hr::ok);
    }
    void AddEvents(int count) {
        for (int i = 0; i < count; ++i)
            Insert(Key(i), Value(i));
        Flush();
    }
    void Insert(const std::string& key, const std::string& value) {
        ASSERT_EQ(store_->Insert(Str(key).Get(), Str(value).Get()), hr::ok);
    }
    void Flush() { ASSERT_EQ(store_->Stop(), hr::ok); }  // writes on this thread
    static std::string Time(int i) {
        char text[64];
        std::snprintf(text, sizeof(text), "2026-05-01T10:%02d:%02d.000Z", i / 60, i % 60);
        return text;
    }
    static std::string Key(int i) {
        return "p<begin_time>" + Time(i) + "<sequence>0000000001<object_type>file<action>create";
    }
    static std::string Value(int i) { return "{\"n\":" + std::to_string(i) + "}"; }
    HRESULT Run(const std::string& document) {
        got_ = {};
        got_.batchAnswer = batchAnswer_;
        return test::RunQuery(*store_, document, got_);
    }
    static std::string Query(const std::string& subQueries, const std::string& more = "") {
        return R"({"event_query":{"events":[)" + subQueries + "]" + more + "}}";
    }
    static std::string From(int i, const std::string& more = "") {
        return R"({"begin_time":{"value":")" + Time(i) + "\"}" + more + "}";
    }

    test::TempStore directory_;
    const test::LoadedComponent component_;
    const CountedPtr<IEventStore7> store_ = component_.Store();
    RecordingCallback got_;
    HRESULT batchAnswer_ = hr::ok;
};

// Takes rows where they stand.
class RowCallback final : public IQueryCallback, public IQueryRows {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        *out = iid == iidQueryRows ? static_cast<IQueryRows*>(this) : nullptr;
        return *out != nullptr ? TOB_OK : TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT, IValueCollection*, bool isFinal, bool, IStringValue*,
                           std::int32_t) override {
        batches += isFinal ? 0 : 1;
        return hr::ok;
    }
    HRESULT OnQueryRow(const QueryRow& row) override {
        keys.emplace_back(row.key);
        rest.push_back(std::string(row.text) + std::string(row.enrichments));
        return keys.size() == most ? hr::nothingToDo : hr::ok;
    }

    std::size_t most = 100, batches = 0;
    std::vector<std::string> keys, rest;
};

TEST_F(QueryTest, RowsComeOnceWithTheirKeysToWhoTakesThem) {
    const std::string enrichment = R"({"x":1})";
    ASSERT_EQ(store_->InsertSilent(Str(Key(1) + "<silent_sequence>0000000001").Get(),
                                   Str(enrichment).Get()),
              hr::ok);
    Flush();
    const std::string both = From(0, R"(,"action":["create"])") + "," + From(0);
    RowCallback all;
    EXPECT_EQ(
        store_->Query(Str(Query(both, R"(,"include_enrichments":true)")).Get(), &all, nullptr),
        hr::ok);
    EXPECT_EQ(all.keys, (std::vector<std::string>{Key(0), Key(1), Key(2), Key(3), Key(4)}));
    EXPECT_EQ(all.rest[0], Value(0));
    EXPECT_EQ(all.rest[1], Value(1) + "[" + enrichment + "]");
    RowCallback few;
    few.most = 2;
    EXPECT_EQ(store_->Query(Str(Query(From(1))).Get(), &few, nullptr), hr::ok);
    EXPECT_EQ(few.keys, (std::vector<std::string>{Key(1), Key(2)}));
    EXPECT_EQ(all.batches + few.batches, 0u);
}

TEST_F(QueryTest, LimitsCountOverAllSubQueries) {
    const std::string two = From(0, R"(,"end_time":{"value":")" + Time(1) + "\"}");
    const struct {
        std::string subQueries;
        int limit;
        std::size_t texts;
        bool complete;
    } rows[] = {
        {From(0), 2, 2, true},
        {From(0), 0, 1, false},  // the first match goes out before the limit is looked at
        {From(0), -5, 5, true},
        {two + "," + From(0), 2, 3, false},
        {two + "," + From(0), 4, 4, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(
            Run(Query(row.subQueries, ",\"limit_result_count\":" + std::to_string(row.limit))),
            hr::ok);
        EXPECT_EQ(got_.texts.size(), row.texts) << row.limit;
        EXPECT_EQ(got_.complete, row.complete) << row.limit;
    }
}

TEST_F(QueryTest, ResultsComeInBatchesOfAHundred) {
    AddEvents(250);
    EXPECT_EQ(Run(Query(From(0))), hr::ok);
    EXPECT_EQ(got_.batches, (std::vector<std::size_t>{100, 100, 50}));
    EXPECT_EQ(Run(Query(From(0), ",\"limit_result_count\":100")), hr::ok);
    EXPECT_EQ(got_.batches, (std::vector<std::size_t>{100}));
    batchAnswer_ = hr::fail;
    EXPECT_EQ(Run(Query(From(0))), hr::ok);
    EXPECT_EQ(got_.batches, (std::vector<std::size_t>{100, 100}))
        << "the walk ends, and the batch is offered once more at the end";
}

TEST_F(QueryTest, ReceiveTimeRowsAreAFamilyOfTheirOwn) {
    for (int i : {1, 2})
        Insert("r<receive_time>" + Time(i) + "<sequence>000000000" + std::to_string(i),
               R"({"event_pkey":")" + Key(i) + R"(","event_enrichment":{"a":)" + std::to_string(i) +
                   "}}");
    Insert("r<receive_time>" + Time(3) + "<sequence>0000000003",
           R"({"event_pkey":"p<begin_time>gone"})");
    Flush();
    EXPECT_EQ(Run(Query(R"({"receive_time":{"value":")" + Time(0) + "\"}}")), hr::ok);
    EXPECT_EQ(got_.texts, (std::vector<std::string>{R"({"n":1,"enriched_data":{"a":1}})",
                                                    R"({"n":2,"enriched_data":{"a":2}})"}));
    EXPECT_EQ(got_.cursors.front(), (std::pair<std::string, std::int32_t>{Time(2), 2}));
    EXPECT_EQ(Run(Query(From(4))), hr::ok);
    EXPECT_EQ(got_.texts.size(), 1u) << "the walk ends where the other family begins";
}

TEST_F(QueryTest, RowsWhoseEventIsGoneGetNoOthers) {
    for (int i = 0; i <= 100; ++i)
        Insert("r<receive_time>" + Time(0) + "<sequence>" + std::to_string(1000000000 + i),
               R"({"event_pkey":")" + (i < 100 ? Key(1) : "p<begin_time>gone") + "\"}");
    Flush();
    // With the catalog empty a search succeeds and finds nothing.
    got_.onBatch = [&](std::size_t) { EXPECT_EQ(store_->Shutdown(), hr::ok); };
    EXPECT_EQ(test::RunQuery(*store_, Query(R"({"receive_time":{"value":"2000"}})"), got_), hr::ok);
    EXPECT_EQ(got_.batches, (std::vector<std::size_t>{100}));
}

TEST_F(QueryTest, FaultsEndInOneEndCall) {
    const std::pair<std::string, HRESULT> rows[] = {
        {"", hr::invalidArgument},
        {"not json", hr::unexpected},
        {R"({"event_query":{"events":{}}})", hr::unexpected},
        {Query(R"({"seq_num":1})"), hr::invalidArgument},
        {Query(R"({"end_time":{"value":"x"}})"), hr::invalidArgument},
        {Query(From(0, R"(,"action":["fly"])")), hr::unexpected},
        {Query(R"({"begin_time":{"value":"x","operator":{"value":"equals"}}})"),
         hr::invalidArgument},
        {"{}", hr::ok},
        {R"({"event_query":{"events":[]}})", hr::ok},
    };
    for (const auto& [document, result] : rows) {
        EXPECT_EQ(Run(document), result) << document;
        EXPECT_TRUE(got_.complete);
        EXPECT_TRUE(got_.texts.empty());
    }
    EXPECT_EQ(Run(Query(From(3) + R"(,{"seq_num":1})")), hr::invalidArgument);
    EXPECT_EQ(got_.texts.size(), 2u) << "what was delivered stays delivered";
    EXPECT_EQ(store_->QueryEx(nullptr, nullptr, nullptr, nullptr), hr::invalidArgument);
}

// What a query with the document would find: its range and its conditions, of any sub-query.
TEST_F(QueryTest, FilterHoldsKeysToADocument) {
    const struct {
        const char* subQueries;
        HRESULT made;
        bool passes;
    } rows[] = {
        {R"({})", hr::ok, true},
        {R"({"action":["delete"]})", hr::ok, false},
        {R"({"action":["delete"]},{"action":["create"]})", hr::ok, true},
        {R"({"begin_time":{"value":"2026-05-01T10:00:00.000Z"},"seq_num":1})", hr::ok, true},
        {R"({"begin_time":{"value":"2026-05-01T10:00:00.000Z"},"seq_num":2})", hr::ok, false},
        {R"({"end_time":{"value":"2026-05-01T10:00:00.000Z"}})", hr::ok, true},
        {R"({"end_time":{"value":"2026-05-01T09:59:59.999Z"}})", hr::ok, false},
        {R"({"receive_time":{"value":"2026-05-01T10:00:00.000Z"}})", hr::invalidArgument, false},
        {"", hr::invalidArgument, false},
        {"{", hr::unexpected, false},
    };
    CountedPtr<IRowFilterMaker> maker;
    ASSERT_EQ(store_->QueryInterface(iidRowFilterMaker, maker.ReceiveVoid()), TOB_OK);
    for (const auto& row : rows) {
        CountedPtr<IRowFilter> filter;
        const std::string document =
            R"({"event_query":{"events":[)" + std::string(row.subQueries) + "]}}";
        EXPECT_EQ(maker->MakeRowFilter(Str(document).Get(), filter.Receive()), row.made);
        bool passes = false;
        if (filter) {
            EXPECT_EQ(filter->Passes(Str(Key(0)).Get(), &passes), hr::ok);
        }
        EXPECT_EQ(passes, row.passes) << row.subQueries;
    }
}

// A callback that takes one row at a time has the place of each.
TEST_F(QueryTest, CallbackBoundsBatches) {
    RecordingCallback callback;
    callback.mostResults = 1;
    ASSERT_EQ(store_->Query(Str(R"({"event_query":{"events":[)"
                                R"({"begin_time":{"value":"2026-01-01T00:00:00.000Z"}}]}})")
                                .Get(),
                            &callback, nullptr),
              hr::ok);
    EXPECT_EQ(callback.batches.size(), 5u);
}

}  // namespace
}  // namespace ZEL
