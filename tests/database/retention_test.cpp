#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "databasefixture.h"
#include "otherprocess.h"
#include "support/slowdisk.h"

namespace ZEL {
namespace {

namespace fs = std::filesystem;
using test::DatabaseTest;
using test::Key;
using test::RecordingSink;
using Names = std::set<std::string>;
using Values = std::vector<std::string>;

constexpr std::uint64_t mib = 0x100000;

std::size_t CountEntries(const char* directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

class Retention : public DatabaseTest {
protected:
    void Fill(const std::string& file, std::uint64_t bytes) {
        fs::create_directories((store.Path() / file).parent_path());
        store.WriteFile(file, "");
        fs::resize_file(store.Path() / file, bytes);
    }
};

TEST_F(Retention, TakesWholeFoldersOldestFirstUntilTheRestFits) {
    const struct {
        std::uint64_t strayBytes;  // in a file that belongs to no database
        std::uint32_t limit;
        std::uint32_t status;
        Names left;
    } rows[] = {
        {0, 9, 1, {"20261109", "20261109001", "20261109999", "20261110", "foreign"}},
        {1, 9, 1, {"20261109001", "20261109999", "20261110", "foreign"}},
        {0, 7, 1, {"20261109999", "20261110", "foreign"}},
        {0, 6, 1, {"20261109999", "20261110", "foreign"}},
        {0, 5, 1, {"20261110", "foreign"}},
        {0, 2, 1, {"foreign"}},
        {0, 0, 1, {}},
        {1, 0, 2, {}},
        {0, 4294967295, 1, {"20261109", "20261109001", "20261109999", "20261110", "foreign"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.limit) + " " + std::to_string(row.strayBytes));
        for (const std::string& name : store.List())
            fs::remove_all(store.Path() / name);
        Fill("20261109/a.ldb", mib);
        Fill("20261109001/a.ldb", mib);
        Fill("20261109001/deep/b", mib);
        Fill("20261109999/a", mib);
        Fill("20261110/a", 3 * mib);
        Fill("foreign/a", 2 * mib);
        Restart();
        if (row.strayBytes != 0)
            Fill("stray", row.strayBytes);
        EXPECT_EQ(Enforce(row.limit), row.status);
        Names left = store.List();
        left.erase("stray");
        EXPECT_EQ(left, row.left);
        EXPECT_EQ(Enforce(row.limit), row.status) << "the same again changes nothing";
    }
}

TEST_F(Retention, DatabasesBeingWrittenStay) {
    Fill("20261112/a", 5 * mib);  // today's, full and left behind
    store.AddTables("20261112", 80);
    Fill("20261101999/a", mib);
    Restart();
    ASSERT_EQ(Write(), hr::ok);
    RecordBatch silent{{Key("2026-11-02", 1) + "<silent_sequence>0000000001", "{}"}};
    ASSERT_EQ(db->WriteSilentRecords(silent), hr::ok);
    EXPECT_EQ(Enforce(0), 2u);
    EXPECT_EQ(store.List(), (Names{"20261102999", "20261112001"}));
    EXPECT_EQ(Enforce(1), 1u);
    ASSERT_EQ(Write(2), hr::ok);
    EXPECT_EQ(ScanAll().size(), 2u) << "the database in use goes on";
    clock.SetDate(2026, 11, 13);
    ASSERT_EQ(Write(), hr::ok);
    EXPECT_EQ(Enforce(0), 2u);
    EXPECT_EQ(store.List(), (Names{"20261102999", "20261113"})) << "yesterday's is not written now";
}

// Writes a batch while a purge adds up the sizes of what it has chosen from.
class WriterInAWalk final : public wm::ITraceSink {
public:
    explicit WriterInAWalk(std::function<void()> write) : write_(std::move(write)) {
        wm::SetTraceSink(this);
    }
    ~WriterInAWalk() override { wm::SetTraceSink(nullptr); }
    bool Enabled(wm::TraceLevel level) const noexcept override {
        return level == wm::TraceLevel::warning;
    }
    void OnTrace(const wm::TraceMessage& message) noexcept override {
        const bool isSizing = message.argument.ends_with("20261112/lost+found");
        if (isSizing && ++walks_ == 2)  // the first one is over the whole store
            write_();
    }

private:
    const std::function<void()> write_;
    int walks_ = 0;
};

TEST_F(Retention, FolderThatComesIntoUseDuringThePurgeStays) {
    Put("20261112", {{"p1", ""}});
    store.MakeFolder("20261112/lost+found");
    Fill("20261111/a", mib);
    Restart();
    bool isWritten = false;
    const WriterInAWalk writer([&] { isWritten = Succeeded(Write()); });
    EXPECT_EQ(Enforce(0), 1u) << "both were chosen";
    EXPECT_TRUE(isWritten);
    EXPECT_EQ(store.List(), Names{"20261112"});
    EXPECT_EQ(ScanAll().size(), 2u);
}

TEST_F(Retention, FolderWhoseFirstWriteIsUnderWayStays) {
    Fill("20261101999/a", mib);
    Restart();
    const std::string event = Key("2026-11-02", 1);
    test::SlowDisk disk;
    disk.Block(".log");
    std::thread writer([&] {
        RecordBatch silent{{event + "<silent_sequence>0000000001", "kept"}};
        EXPECT_EQ(db->WriteSilentRecords(silent), hr::ok);
    });
    disk.AwaitBlocked();
    EXPECT_EQ(Enforce(0), 2u);
    disk.Unblock();
    writer.join();
    EXPECT_EQ(store.List(), Names{"20261102999"});
    const QueryId query{1, 0, 0, {}};
    Values values;
    EXPECT_EQ(db->GetEnrichments(&query, event, &values), hr::ok);
    EXPECT_EQ(values, Values{"kept"});
    db->ReleaseQueryCursor(&query);
}

TEST_F(Retention, NeitherFollowsLinksNorTakesThemForFolders) {
    test::TempStore outside;
    outside.WriteFile("kept", std::string(3 * mib, 'x'));
    outside.WriteFile("CURRENT", "");
    outside.WriteFile("000001.log", "");
    wm::SetPathToken(L"%ZELDataStore%", store.WidePath());
    Fill("20261101/a", mib);
    Fill("20261102/a", mib);
    Put("20261103", {{"p1", "v"}});
    fs::create_directory_symlink(outside.Path(), store.Path() / "20261101" / "inner");
    fs::create_directory_symlink(outside.Path(), store.Path() / "20261100");
    Restart();
    EXPECT_EQ(Enforce(3), 1u) << "what links point at does not count";
    // A link takes the place of a database that somebody has open.
    RecordingSink sink;
    sink.onRow = [&](bool*) {
        fs::remove_all(store.Path() / "20261101");
        fs::create_directory_symlink(outside.Path(), store.Path() / "20261101");
        fs::rename(store.Path() / "20261103", outside.Path() / "moved");
        fs::create_directory_symlink(outside.Path(), store.Path() / "20261103");
        Fill("stray", 1);
        EXPECT_EQ(Enforce(0), 2u);
        return RowResult::goOn;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys.size(), 1u);
    EXPECT_EQ(store.List(), (Names{"20261100", "stray"}));
    EXPECT_EQ(outside.List(), (Names{"CURRENT", "000001.log", "kept", "moved"}));
}

TEST_F(Retention, WhatVanishesCountsNothingAndWhatCantBeWalkedEndsThePurge) {
    Fill("20261101/a", mib);
    Fill("20261102/a", mib);
    Fill("20261103/a", mib);
    Restart();
    fs::remove_all(store.Path() / "20261101");
    EXPECT_EQ(Enforce(1), 1u);
    EXPECT_EQ(store.List(), Names{"20261103"});

    Fill("20261104/a", mib);
    Restart();
    // A path too long to be opened by its name.
    int folder = ::open((store.Path() / "20261104").c_str(), O_DIRECTORY);
    const std::string name(250, 'x');
    for (int depth = 0; depth < 20; ++depth) {
        ASSERT_EQ(::mkdirat(folder, name.c_str(), 0700), 0);
        const int below = ::openat(folder, name.c_str(), O_DIRECTORY);
        ::close(folder);
        folder = below;
    }
    ::close(folder);
    std::uint32_t status = 7;
    EXPECT_TRUE(Failed(db->EnforceSizeLimit(0, &status)));
    EXPECT_EQ(status, 7u);
    EXPECT_EQ(store.List().size(), 2u) << "nothing was deleted";
    fs::remove_all(store.Path());
    EXPECT_EQ(db->EnforceSizeLimit(0, &status), hr::pathNotFound);
}

TEST_F(Retention, ScanOutlivesItsDatabaseAndLeavesNothingBehind) {
    constexpr int rowCount = 3000;
    Put("20261110", test::Rows(rowCount, "2026-11-10"));
    Put("20261111", test::Rows(1, "2026-11-11"));
    Restart();
    ASSERT_EQ(ScanAll().size(), static_cast<std::size_t>(rowCount + 1));  // the library's thread
    const std::size_t descriptors = CountEntries("/proc/self/fd");
    const std::size_t threads = CountEntries("/proc/self/task");
    RecordingSink sink;
    sink.onRow = [&](bool*) {
        if (sink.keys.size() == 10) {
            EXPECT_EQ(Enforce(0), 1u);
            EXPECT_EQ(store.List(), Names{"20261110.removed"}) << "its reader is not done";
            EXPECT_EQ(ScanAll().size(), 0u) << "nobody new finds it";
        }
        return RowResult::goOn;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys.size(), static_cast<std::size_t>(rowCount));
    EXPECT_TRUE(store.List().empty());
    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
    EXPECT_EQ(CountEntries("/proc/self/task"), threads);
    EXPECT_TRUE(Errors().empty()) << "what went before its turn is passed over";
}

TEST_F(Retention, AbortReachesAScanWhoseDatabaseIsPurged) {
    Put("20261110", test::Rows(3000, "2026-11-10"));
    Restart();
    wm::EventObject pause;
    ASSERT_TRUE(pause.Create(wm::EventReset::manual));
    RecordingSink sink;
    sink.onRow = [&](bool*) {
        if (sink.keys.size() == 10) {
            EXPECT_EQ(Enforce(0), 1u);
            db->AbortScans();
        }
        return RowResult::goOn;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), pause.Handle()), hr::ok);
    EXPECT_EQ(sink.keys.size(), 999u);
}

TEST_F(Retention, PrefixReadsGoOnUntilTheirQueryEnds) {
    const std::string event = Key("2026-11-10", 1);
    Put("20261110999", {{event + "<silent_sequence>0000000001", "a"},
                        {event + "<silent_sequence>0000000002", "b"}});
    Restart();
    const std::size_t descriptors = CountEntries("/proc/self/fd");
    const QueryId running{1, 0, 0, {}}, late{2, 0, 0, {}};
    Values values;
    ASSERT_EQ(db->GetEnrichments(&running, event, &values), hr::ok);
    EXPECT_EQ(Enforce(0), 1u);
    EXPECT_EQ(db->GetEnrichments(&running, event, &values), hr::ok);
    EXPECT_EQ(values, (Values{"a", "b", "a", "b"}));
    EXPECT_EQ(db->GetEnrichments(&late, event, &values), hr::notFound);
    RecordBatch next{{event + "<silent_sequence>0000000003", "c"}};
    EXPECT_EQ(db->WriteSilentRecords(next), hr::ok) << "made anew beside the one that is read";
    EXPECT_EQ(store.List(), (Names{"20261110999", "20261110999.removed"}));
    values.clear();
    EXPECT_EQ(db->GetEnrichments(&late, event, &values), hr::ok);
    EXPECT_EQ(db->GetEnrichments(&running, event, &values), hr::ok);
    EXPECT_EQ(values, (Values{"c", "a", "b"}));
    db->ReleaseQueryCursor(&running);
    db->ReleaseQueryCursor(&late);
    EXPECT_EQ(store.List(), Names{"20261110999"});
    db->CloseAll();
    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
}

TEST_F(Retention, FolderOfAnotherProcessStays) {
    clock.SetDate(2026, 11, 2);
    Fill("20261101/a", mib);
    Put("20261102", {{"p1", "v"}});
    Restart();
    {
        const test::OtherProcess other(store.Folder("20261102"));
        EXPECT_EQ(Write(), hr::sharingViolation);
        EXPECT_EQ(ErrorOf("20261102", DatabaseErrorKind::open).count, 1u);
        EXPECT_EQ(Enforce(0), 1u) << "the folders were chosen";
        EXPECT_EQ(store.List(), Names{"20261102"});
        EXPECT_EQ(Enforce(0), 2u) << "it is out of the catalog";
    }
    Restart();
    EXPECT_EQ(ScanAll(), Values{"p1"}) << "and comes back whole at the next start";
}

TEST_F(Retention, PurgesReadersAbortsAndWritersGoSideBySide) {
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        for (std::uint16_t day = 1; day <= 28; ++day) {
            clock.SetDate(2026, 11, day);
            RecordBatch events = test::Rows(200), silent;
            const std::string date = day < 10 ? "2026-11-0" : "2026-11-";
            silent[Key(date + std::to_string(day), 1) + "<silent_sequence>0000000001"] = "{}";
            EXPECT_EQ(db->WriteRecords(events), hr::ok);
            EXPECT_EQ(db->WriteSilentRecords(silent), hr::ok);
        }
        ended = true;
    });
    std::thread purger([&] {
        while (!ended)
            Enforce(0);
    });
    const auto read = [&](const QueryId& query) {
        while (!ended) {
            for (const std::string& key : ScanAll()) {
                Values values;
                IgnoreResult(db->GetEnrichments(&query, key, &values), "it may be gone");
            }
            db->AbortScans();
        }
        db->ReleaseQueryCursor(&query);
    };
    std::thread reader([&] { read({1, 0, 0, {}}); });
    read({2, 0, 0, {}});
    for (std::thread* thread : {&reader, &writer, &purger})
        thread->join();
    EXPECT_EQ(Enforce(0), 2u);
    EXPECT_EQ(store.List(), (Names{"20261128", "20261128999"}));
    EXPECT_EQ(ScanAll().size(), 200u) << "what is protected is whole";
}

TEST_F(Retention, OldestDateAndEstimate) {
    std::wstring date = L"former";
    std::uint64_t bytes = 7;
    EXPECT_EQ(db->GetOldestDate(&date, &bytes), hr::ok);
    EXPECT_EQ(date, L"");
    EXPECT_EQ(bytes, 0u);
    store.AddTables("20261109999", 2);
    store.AddTables("20261110", 3);
    store.AddTables("foreign", 1);
    Restart();
    ASSERT_EQ(Write(1000), hr::ok);
    EXPECT_EQ(db->GetOldestDate(&date, &bytes), hr::ok);
    EXPECT_EQ(date, L"20261109");
    EXPECT_EQ(bytes, 6 * bytesPerTableFile) << "today's is counted anew";
    clock.SetDate(2026, 11, 13);
    RecordBatch silent{{Key("2026-11-09", 1) + "<silent_sequence>0000000001", "{}"}};
    ASSERT_EQ(db->WriteSilentRecords(silent), hr::ok);
    EXPECT_EQ(db->GetOldestDate(&date, &bytes), hr::ok);
    EXPECT_EQ(bytes, 6 * bytesPerTableFile + bytesPerRecord) << "others by their records";
}

}  // namespace
}  // namespace ZEL
