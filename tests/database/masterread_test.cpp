#include <thread>

#include "databasefixture.h"

namespace ZEL {
namespace {

using test::DatabaseTest;
using test::Key;
using test::RecordingSink;
using Values = std::vector<std::string>;

class MasterRead : public DatabaseTest {
protected:
    void Put(const std::string& folder, const RecordBatch& rows) {
        LevelDbInstanceProxy writer(store.Folder(folder));
        ASSERT_EQ(writer.Write(rows), hr::ok);
    }
    static std::string Enrichment(const std::string& date, int event, const char* flag = "1") {
        return Key(date, event) + "<silent_sequence>0000000001<silent_enrichment>" + flag;
    }
    // Whether somebody has the folder's database open in this process.
    bool IsOpen(const std::string& folder) {
        LevelDbInstanceProxy probe(store.Folder(folder));
        return probe.Hold(false) == hr::deviceError;
    }
};

TEST_F(MasterRead, WithoutEventDatabasesNothingIsTried) {
    for (const bool withSilent : {false, true}) {
        if (withSilent)
            Put("20261112999", {{"p", "v"}});
        Restart();
        RecordingSink sink;
        EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
        EXPECT_EQ(sink.begins + sink.ends, 2);
        EXPECT_EQ(sink.attached, 0);
        std::string value = "untouched";
        EXPECT_EQ(db->GetRecord("p", &value), hr::ok);
        EXPECT_EQ(value, "untouched");
    }
    RecordingSink failing;
    failing.beginAnswer = hr::invalidArgument;
    EXPECT_EQ(db->Scan("p", &failing, stop.Handle(), nullptr), hr::invalidArgument);
    EXPECT_EQ(failing.ends, 0);
    EXPECT_EQ(db->Scan("p", nullptr, stop.Handle(), nullptr), hr::invalidArgument);
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
    Restart();
    const QueryId query{7, 0, 0, {}};
    Values values;
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-10", 1), &values), hr::notFound);
    EXPECT_FALSE(store.Exists("20261110999"));
    EXPECT_EQ(db->GetEnrichments(&query, "r<receive_time>2026", &values), hr::fail);
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-11", 1), &values), hr::ok);
    EXPECT_TRUE(IsOpen("20261111999"));
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

TEST_F(MasterRead, BrokenSilentDatabaseFailsTheLookupAlone) {
    Put("20261112999", {{Enrichment("2026-11-12", 1), "b"}});
    store.WriteFile("20261112999/CURRENT", "rubbish");
    Restart();
    const QueryId query{1, 0, 0, {}};
    Values values;
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-12", 1), &values), hr::corrupt);
    EXPECT_TRUE(store.Exists("20261112999"));
    db->ReleaseQueryCursor(&query);
}

TEST_F(MasterRead, ReadersWritersAndAbortsGoSideBySide) {
    constexpr int rounds = 60;
    std::thread writer([this] {
        for (int i = 0; i < rounds; ++i) {
            RecordBatch events = test::Rows(50), silent;
            silent[Enrichment(i % 2 != 0 ? "2026-11-11" : "2026-11-12", i)] = "{}";
            EXPECT_EQ(db->WriteRecords(events), hr::ok);
            EXPECT_EQ(db->WriteSilentRecords(silent), hr::ok);
        }
    });
    std::vector<std::thread> readers;
    for (std::uint32_t id = 1; id <= 2; ++id)
        readers.emplace_back([this, id] {
            const QueryId query{id, 0, 0, {}};
            for (int i = 0; i < rounds; ++i) {
                Values values;
                IgnoreResult(db->GetEnrichments(
                                 &query, Key(i % 3 != 0 ? "2026-11-11" : "2026-11-12", i), &values),
                             "there may be none yet");
                ScanAll();
                db->AbortScans();
            }
            db->ReleaseQueryCursor(&query);
        });
    for (std::thread& thread : readers)
        thread.join();
    writer.join();
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(ScanAll().size(), 50u);
}

}  // namespace
}  // namespace ZEL
