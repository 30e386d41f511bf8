#include "databasefixture.h"

namespace ZEL {
namespace {

using test::DatabaseTest;
using test::Key;
using test::RecordingSink;
using Values = std::vector<std::string>;

class MasterRead : public DatabaseTest {
protected:
    static std::string Enrichment(const std::string& date, int event, const char* flag = "1") {
        return Key(date, event) + "<silent_sequence>0000000001<silent_enrichment>" + flag;
    }
};

TEST_F(MasterRead, WithoutEventDatabasesNothingIsTried) {
    Put("20261112999", {{"p", "v"}});
    Restart();
    RecordingSink sink;
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.begins + sink.ends, 2);
    EXPECT_EQ(sink.attached, 0);
    std::string value = "untouched";
    EXPECT_EQ(db->GetRecord("p", &value), hr::ok);
    EXPECT_EQ(value, "untouched");
    sink.beginAnswer = hr::invalidArgument;
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::invalidArgument);
    EXPECT_EQ(sink.ends, 1) << "what did not begin has no end";
}

TEST_F(MasterRead, WalksDatabasesOldestFirstAndPassesOverTheBroken) {
    Put("20261112", {{"p1", "new"}, {"p3", "new"}});
    Put("20261111001", {{"p2", "mid"}, {"q", "beyond"}});
    Put("20261111", {{"p1", "old"}, {"a", "before"}});
    Put("20261111999", {{"p0", "silent"}});
    Put("20261110", {{"p0", "lost"}});
    store.WriteFile("20261110/CURRENT", "rubbish");
    store.MakeFolder("foreign");
    Restart();
    EXPECT_EQ(ScanAll(), (Values{"p1", "p2", "q", "p1", "p3"}));
    EXPECT_EQ(ErrorOf("20261110", DatabaseErrorKind::read).lastResult, hr::corrupt);
    EXPECT_EQ(ErrorOf("foreign", DatabaseErrorKind::read).lastResult, hr::fail);
    EXPECT_EQ(Errors().size(), 2u);
    EXPECT_EQ(store.List("foreign").size(), 0u);
    EXPECT_TRUE(store.Exists("20261110")) << "no read gives a database up";

    std::string value;
    EXPECT_EQ(db->GetRecord("p1", &value), hr::ok);
    EXPECT_EQ(value, "old") << "the oldest hit wins";
    EXPECT_EQ(db->GetRecord("p0", &value), hr::fail) << "of the last one tried, the foreign folder";
    EXPECT_EQ(ErrorOf("20261110", DatabaseErrorKind::read).count, 3u);
    for (const char* folder : {"20261111", "20261111001", "20261112"})
        EXPECT_FALSE(IsOpen(folder)) << folder;
}

TEST_F(MasterRead, SinkThatHasEnoughKeepsFurtherDatabasesOut) {
    Put("20261111", {{"p1", ""}, {"p2", ""}});
    Put("20261112", {{"p3", ""}});
    Restart();
    RecordingSink sink;
    sink.onRow = [](bool*) { return RowResult::endDatabase; };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys, (Values{"p1", "p3"})) << "the end of one database is not the end";
    sink.keys.clear();
    sink.onRow = [](bool* keepGoing) {
        *keepGoing = false;
        return RowResult::endDatabase;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys, Values{"p1"});
}

TEST_F(MasterRead, AQueryKeepsTheSilentDatabaseOfOneDateOpen) {
    Put("20261111999", {{Enrichment("2026-11-11", 1), "a"}});
    Put("20261112999",
        {{Enrichment("2026-11-12", 1), "b"}, {Enrichment("2026-11-12", 2, "0"), ""}});
    Put("20261114999", {{Enrichment("2026-11-14", 1), "c"}});
    store.WriteFile("20261114999/CURRENT", "rubbish");
    Restart();
    const QueryId query{7, 0, 0, {}};
    Values values;
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-10", 1), &values), hr::notFound);
    EXPECT_FALSE(store.Exists("20261110999"));
    EXPECT_EQ(db->GetEnrichments(&query, "r<receive_time>2026", &values), hr::fail);
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-11", 1), &values), hr::ok);
    RecordBatch written{{Enrichment("2026-11-11", 2), ""}, {Enrichment("2026-11-12", 3), ""}};
    EXPECT_EQ(db->WriteSilentRecords(written), hr::ok);
    EXPECT_TRUE(IsOpen("20261111999")) << "also when a writer has let it go";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-14", 1), &values), hr::corrupt);
        EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-10", 1), &values), hr::notFound);
    }
    EXPECT_TRUE(store.Exists("20261114999")) << "a lookup gives nothing up";
    const DatabaseErrorEntry damaged = ErrorOf("20261114999", DatabaseErrorKind::read);
    EXPECT_EQ(damaged.lastResult, hr::corrupt);
    EXPECT_EQ(damaged.count, 1u) << "once for the query, however many events it has";
    EXPECT_EQ(Errors().size(), 1u) << "what is not there is no failure";
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-12", 1), &values), hr::ok);
    EXPECT_EQ(values, (Values{"a", "b"}));
    EXPECT_FALSE(IsOpen("20261111999")) << "the date has changed";
    bool hasOther = false;
    EXPECT_EQ(db->GetSilentEnrichments(&query, Key("2026-11-12", 2), &hasOther, true, &values),
              hr::ok);
    EXPECT_TRUE(hasOther);
    EXPECT_TRUE(values.empty());
    db->CloseAll();
    EXPECT_TRUE(IsOpen("20261112999")) << "cursors go with their queries";
    db->ReleaseQueryCursor(&query);
    EXPECT_FALSE(IsOpen("20261112999"));
    db->ReleaseQueryCursor(&query);
}

TEST_F(MasterRead, AChangeOfDateDropsWhatPrefixReadsShare) {
    Put("20261111999", {{Enrichment("2026-11-11", 1), "a"}});
    Restart();
    const QueryId first{1, 0, 0, {}}, second{2, 0, 0, {}};
    Values values;
    for (const QueryId* query : {&first, &second})
        EXPECT_EQ(db->GetEnrichments(query, Key("2026-11-11", 1), &values), hr::ok);
    RecordBatch written{{Enrichment("2026-11-11", 2), "b"}};
    EXPECT_EQ(db->WriteSilentRecords(written), hr::ok);
    values.clear();
    EXPECT_EQ(db->GetEnrichments(&second, Key("2026-11-11", 2), &values), hr::ok);
    EXPECT_TRUE(values.empty()) << "as it was when the reads began";
    EXPECT_EQ(db->GetEnrichments(&first, Key("2026-11-12", 1), &values), hr::notFound);
    EXPECT_EQ(db->GetEnrichments(&second, Key("2026-11-11", 2), &values), hr::ok);
    EXPECT_EQ(values, Values{"b"});
    for (const QueryId* query : {&first, &second})
        db->ReleaseQueryCursor(query);
}

}  // namespace
}  // namespace ZEL
