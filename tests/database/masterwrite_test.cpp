#include <cerrno>
#include <filesystem>

#include "databasefixture.h"
#include "otherprocess.h"
#include "support/slowdisk.h"

namespace ZEL {
namespace {

using test::DatabaseTest;
using test::Key;
using Names = std::set<std::string>;
constexpr int full = 80;  // table files

class MasterWrite : public DatabaseTest {};

TEST_F(MasterWrite, ChoosesTheFolderOfTheDay) {
    const struct {
        std::vector<std::pair<std::string, int>> folders;  // with how many tables
        std::string expected;                              // a new one
    } rows[] = {
        {{}, "20261112"},
        {{{"20261112", full}}, "20261112001"},
        {{{"20261112", full}, {"20261112005", full}}, "20261112006"},
        {{{"20261112", 1}, {"20261112001", full}}, "20261112002"},
        {{{"20261112999", 1}}, "20261112"},
        {{{"20261111", 1}, {"20261113", 1}, {"foreign", 1}}, "20261112"},
    };
    for (const auto& row : rows) {
        for (const auto& entry : std::filesystem::directory_iterator(store.Path()))
            std::filesystem::remove_all(entry.path());
        Names names{row.expected};
        for (const auto& [name, tables] : row.folders) {
            store.AddTables(name, tables);
            names.insert(name);
        }
        Restart();
        EXPECT_EQ(Write(), hr::ok) << row.expected;
        EXPECT_EQ(store.List(), names);
        EXPECT_TRUE(store.Exists(row.expected + "/CURRENT"));
        EXPECT_EQ(Write(), hr::ok);
        EXPECT_EQ(store.List(), names) << "the same one is used again";
    }
}

TEST_F(MasterWrite, RollsOverWhenFullAndGoesOnAfterARestart) {
    ASSERT_EQ(Write(), hr::ok);
    store.AddTables("20261112", full);
    ASSERT_EQ(Write(88746), hr::ok) << "written before anybody counts";
    EXPECT_FALSE(store.Exists("20261112001"));
    ASSERT_EQ(Write(), hr::ok);
    EXPECT_TRUE(store.Exists("20261112001/CURRENT"));
    Restart();
    ASSERT_EQ(Write(), hr::ok);
    EXPECT_EQ(store.List(), (Names{"20261112", "20261112001"}));
    EXPECT_EQ(ScanAll().size(), 88747u);
}

TEST_F(MasterWrite, AnEstimateOfRecordsDoesNotMakeADatabaseFull) {
    ASSERT_EQ(Write(), hr::ok);
    store.AddTables("20261112", 78);
    Restart();
    ASSERT_EQ(Write(5000), hr::ok);
    ASSERT_EQ(Write(), hr::ok);
    EXPECT_EQ(store.List(), Names{"20261112"});
}

TEST_F(MasterWrite, LastNumberOfADayGrowsWithoutBound) {
    store.AddTables("20261112997", full);
    store.AddTables("20261112999", 1);
    Restart();
    ASSERT_EQ(Write(), hr::ok);
    store.AddTables("20261112998", 200);
    Restart();
    ASSERT_EQ(Write(), hr::ok);
    EXPECT_EQ(store.List(), (Names{"20261112997", "20261112998", "20261112999"}));
    EXPECT_FALSE(store.Exists("20261112999/CURRENT"));
}

TEST_F(MasterWrite, FollowsTheClockAlsoBackwards) {
    for (const std::uint16_t year : {2026, 987, 2026}) {
        clock.SetDate(year, 1, 2);
        ASSERT_EQ(Write(), hr::ok);
    }
    EXPECT_EQ(store.List(), (Names{"20260102", "09870102"}));
    LevelDbInstanceProxy former(store.Folder("09870102"));
    EXPECT_EQ(former.Hold(IfMissing::fail), hr::ok) << "the former one is let go";
    EXPECT_TRUE(Errors().empty());
}

TEST_F(MasterWrite, GivesUpADatabaseWhoseDeviceFails) {
    clock.SetDate(2026, 11, 11);
    ASSERT_EQ(Write(), hr::ok);
    clock.SetDate(2026, 11, 12);
    ASSERT_EQ(Write(), hr::ok);
    {
        test::SlowDisk disk;
        disk.Fail(".log", EIO);
        RecordBatch batch = test::Rows(2);
        EXPECT_EQ(db->WriteRecords(batch), hr::deviceError);
        EXPECT_EQ(batch.size(), 2u) << "the caller decides about the records";
    }
    EXPECT_EQ(store.List(), Names{"20261111"});
    const DatabaseErrorEntry error = ErrorOf("20261112", DatabaseErrorKind::write);
    EXPECT_EQ(error.operation, 3u);
    EXPECT_EQ(error.count, 1u);
    EXPECT_EQ(error.lastResult, hr::deviceError);
    EXPECT_EQ(Write(), hr::ok) << "the next write starts anew";
    EXPECT_EQ(ScanAll().size(), 2u);
}

TEST_F(MasterWrite, GivesUpASilentDatabaseWhoseDeviceFails) {
    const auto write = [&] {
        RecordBatch silent{{Key("2026-11-12", 1) + "<silent_sequence>0000000001", "{}"}};
        return db->WriteSilentRecords(silent);
    };
    ASSERT_EQ(write(), hr::ok);
    {
        test::SlowDisk disk;
        disk.Fail(".log", EIO);
        EXPECT_EQ(write(), hr::deviceError);
    }
    EXPECT_EQ(store.List(), Names{});
    ASSERT_EQ(write(), hr::ok);
    const QueryId query{1, 0, 0, {}};
    std::vector<std::string> values;
    EXPECT_EQ(db->GetEnrichments(&query, Key("2026-11-12", 1), &values), hr::ok);
    EXPECT_EQ(values.size(), 1u) << "the new one is in the catalog";
    db->ReleaseQueryCursor(&query);
}

TEST_F(MasterWrite, WhatTheDiskLacksForAMomentLosesNothing) {
    const struct {
        int error;
        HRESULT told;
    } rows[] = {{ENOSPC, hr::diskFull},         {EDQUOT, hr::diskFull},
                {EMFILE, hr::tooManyOpenFiles}, {ENFILE, hr::tooManyOpenFiles},
                {ENOMEM, hr::outOfMemory},      {EROFS, hr::accessDenied},
                {EACCES, hr::accessDenied}};
    std::size_t written = 0;
    std::uint16_t day = 0;
    for (const auto& row : rows) {
        written += 3;
        clock.SetDate(2026, 11, ++day);
        ASSERT_EQ(Write(2), hr::ok);
        test::SlowDisk disk;
        disk.Fail(".log", row.error, 1);
        EXPECT_EQ(Write(2), hr::ok) << row.error << ": the second attempt succeeds";
        EXPECT_EQ(disk.Failures(), 1);
        EXPECT_TRUE(Errors().empty());
        disk.Fail(".log", row.error);
        EXPECT_EQ(Write(), row.told) << row.error;
        disk.Unblock();
        EXPECT_EQ(Errors().size(), 1u);
        db->ClearDatabaseErrors();
        EXPECT_EQ(Write(3), hr::ok) << row.error;
        EXPECT_EQ(ScanAll().size(), written) << row.error;
    }
}

// Rows for more than one of the buffers that the library empties in the background.
class ManyRows {
public:
    RecordBatch Next() {
        RecordBatch batch;
        for (int i = 0; i < 500; ++i)
            batch[Key("2026-11-12", next_++)] = std::string(10000, 'x');
        return batch;
    }
    std::size_t Count() const { return static_cast<std::size_t>(next_); }

private:
    int next_ = 0;
};

TEST_F(MasterWrite, WhatTheBackgroundHasLackedLosesNothing) {
    for (const int error : {ENOSPC, EMFILE}) {
        ManyRows rows;
        test::SlowDisk disk;
        disk.Fail(".ldb", error, 1);
        while (disk.Failures() == 0 || rows.Count() < 3000) {
            RecordBatch batch = rows.Next();
            ASSERT_EQ(db->WriteRecords(batch), hr::ok) << rows.Count();
        }
        disk.Fail(".ldb", error);
        HRESULT result = hr::ok;
        std::size_t sure = 0;
        while (Succeeded(result)) {
            sure = rows.Count();
            RecordBatch batch = rows.Next();
            result = db->WriteRecords(batch);
        }
        EXPECT_EQ(result, error == ENOSPC ? hr::diskFull : hr::tooManyOpenFiles);
        disk.Unblock();
        Restart();
        EXPECT_GE(ScanAll().size(), sure);
        EXPECT_EQ(Enforce(0), sizeLimitHonored);
    }
}

TEST_F(MasterWrite, GoesOnInTheNextFolderWhereAReaderKeepsTheBrokenOne) {
    ASSERT_EQ(Write(3), hr::ok);
    test::RecordingSink sink;
    sink.onRow = [&](bool*) {
        if (sink.keys.size() > 1)
            return RowResult::goOn;
        test::SlowDisk disk;
        disk.Fail(".log", EIO, 1);
        EXPECT_EQ(Write(), hr::ok);
        disk.Fail(".log", EIO);
        EXPECT_EQ(Write(), hr::deviceError);
        EXPECT_EQ(store.List(), Names{"20261112"}) << "the new one had no excuse";
        disk.Unblock();
        EXPECT_EQ(Write(2), hr::ok);
        return RowResult::goOn;
    };
    EXPECT_EQ(db->Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
    EXPECT_EQ(sink.keys.size(), 3u);
    EXPECT_EQ(Errors().size(), 1u);
    EXPECT_EQ(store.List(), (Names{"20261112", "20261112001"}));
    EXPECT_EQ(ScanAll().size(), 5u);
}

TEST_F(MasterWrite, MakesAnewWhatAKillLeftWithoutRows) {
    const std::vector<Names> leftovers = {
        {},
        {"LOCK"},
        {"LOCK", "LOG", "LOG.old", "MANIFEST-000001", "000001.dbtmp"},
        {"CURRENT", "LOCK", "LOG"},
        {"CURRENT", "MANIFEST-000002", "000003.log"}};
    for (const Names& files : leftovers) {
        db.reset();
        std::filesystem::remove_all(store.Path() / "20261112");
        for (const char* folder : {"20261112", "20261111", "20261111999"}) {
            store.MakeFolder(folder);
            for (const std::string& file : files)
                store.WriteFile(std::string(folder) + "/" + file, "");
        }
        Restart();
        EXPECT_EQ(store.List(), Names{}) << files.size();
        EXPECT_EQ(Write(), hr::ok) << files.size();
        EXPECT_EQ(ScanAll().size(), 1u);
        EXPECT_TRUE(Errors().empty());
    }
    db.reset();
    std::filesystem::remove(store.Path() / "20261112/CURRENT");
    Restart();
    EXPECT_EQ(Write(), hr::fail) << "there may be rows, for somebody to save";
}

TEST_F(MasterWrite, TakesAwayWhatARemovalLeftAndLeavesOthersAlone) {
    Put("20261112", {{"p1", ""}});
    Put("20261111", {{"p0", ""}});
    std::filesystem::rename(store.Path() / "20261111", store.Path() / "20261111.removed-2");
    store.AddTables("20261110001.removed", 1);
    const Names others = {"20261112.removed-x", "backup.removed", "lost+found", "foreign"};
    for (const std::string& name : others) {
        store.MakeFolder(name);
        store.WriteFile(name + "/1.ldb", "some bytes");
    }
    store.MakeFolder("20261113x");
    Restart();
    EXPECT_EQ(ScanAll(), std::vector<std::string>{"p1"});
    EXPECT_EQ(Errors().size(), 4u) << "foreign ones, but lost+found";
    Names left = others;
    left.insert({"20261112", "20261113x"});
    EXPECT_EQ(store.List(), left);
    {
        const test::OtherProcess reader(store.Folder("20261114"));
        std::filesystem::rename(store.Path() / "20261114", store.Path() / "20261114.removed");
        Restart();
        EXPECT_TRUE(store.Exists("20261114.removed")) << "another process is at it";
    }
    Restart();
    EXPECT_EQ(store.List(), left);
    EXPECT_EQ(Enforce(0), sizeLimitHonored);
    EXPECT_EQ(store.List(), Names{"lost+found"});
}

TEST_F(MasterWrite, KnowsADatabaseThatAnotherProcessIsMaking) {
    const test::OtherProcess maker(store.Folder("20261112"));
    Restart();
    std::wstring oldest;
    std::uint64_t bytes = 0;
    EXPECT_EQ(db->GetOldestDate(&oldest, &bytes), hr::ok);
    EXPECT_EQ(oldest, L"20261112");
    EXPECT_TRUE(store.Exists("20261112/CURRENT"));
}

TEST_F(MasterWrite, NoDatabaseIsMadeOverRowsThatSomebodyMightSave) {
    const std::string folder = "20261112999";
    RecordBatch silent{{Key("2026-11-12", 1) + "<silent_sequence>0000000001", "{}"}};
    for (const char* rows : {"000005.ldb", "000005.sst", "000003.log"}) {
        store.MakeFolder(folder);
        store.WriteFile(folder + "/" + rows, "some bytes");
        Restart();
        RecordBatch batch = silent;
        EXPECT_EQ(db->WriteSilentRecords(batch), hr::fail) << rows;
        EXPECT_EQ(store.List(), Names{folder});
        EXPECT_TRUE(store.Exists(folder + "/" + rows));
        std::filesystem::remove_all(store.Path() / folder);
    }
    ASSERT_EQ(Write(), hr::ok);
    std::filesystem::remove(store.Path() / "20261112/CURRENT");
    test::SlowDisk disk;
    disk.Fail(".log", EIO, 1);
    EXPECT_EQ(Write(), hr::fail) << "the second attempt";
    disk.Unblock();
    EXPECT_EQ(store.List(), Names{"20261112"});
}

TEST_F(MasterWrite, OtherFailuresGiveNothingUp) {
    ASSERT_EQ(Write(), hr::ok);
    db.reset();
    store.WriteFile("20261112/CURRENT", "rubbish");
    Restart();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Write(), hr::corrupt) << "each write tries the same database";
    const DatabaseErrorEntry error = ErrorOf("20261112", DatabaseErrorKind::open);
    EXPECT_EQ(error.operation, 1u);
    EXPECT_EQ(error.count, 3u);
    EXPECT_EQ(store.List(), Names{"20261112"});
    EXPECT_TRUE(ScanAll().empty());
    EXPECT_EQ(ErrorOf("20261112", DatabaseErrorKind::read).operation, 0u)
        << "only the first kind to fail tells its name";
    db->ClearDatabaseErrors();
    EXPECT_TRUE(Errors().empty());
}

TEST_F(MasterWrite, SilentRecordsGoToTheDateOfTheirEvents) {
    ASSERT_EQ(Write(), hr::ok);
    RecordBatch batch;
    for (const char* date : {"2020-01-03", "2020-01-01", "2020-01-02", "2020-01-01"})
        batch[Key(date, static_cast<int>(batch.size()))] = "{}";
    EXPECT_EQ(db->WriteSilentRecords(batch), hr::ok);
    EXPECT_TRUE(batch.empty());
    EXPECT_EQ(store.List(), (Names{"20200101999", "20200102999", "20200103999", "20261112"}));
    Restart();
    batch[Key("2020-01-02", 9)] = "{}";
    EXPECT_EQ(db->WriteSilentRecords(batch), hr::ok);
    const QueryId query{1, 0, 0, {}};
    std::vector<std::string> values;
    EXPECT_EQ(db->GetEnrichments(&query, Key("2020-01-02", 0).substr(0, 30), &values), hr::ok);
    EXPECT_EQ(values.size(), 2u) << "the folder that was there is used";
    db->ReleaseQueryCursor(&query);
}

TEST_F(MasterWrite, EachDateOfASilentBatchIsWrittenByItself) {
    const auto write = [&] {
        RecordBatch batch;
        for (const char* date : {"2020-01-01", "2020-01-02", "2020-01-03", "2020-01-04"})
            batch[Key(date, 0)] = "{}";
        const HRESULT result = db->WriteSilentRecords(batch);
        EXPECT_TRUE(batch.empty());
        return result;
    };
    Put("20200103999", {{"p", "lost"}});
    Restart();
    store.WriteFile("20200102999", "in the way");
    store.WriteFile("20200103999/CURRENT", "rubbish");
    EXPECT_EQ(write(), hr::deviceError) << "the first failure";
    EXPECT_EQ(store.List(), (Names{"20200101999", "20200102999", "20200104999"}));
    EXPECT_EQ(ErrorOf("20200103999", DatabaseErrorKind::write).lastResult, hr::corrupt);
    EXPECT_FALSE(IsOpen("20200101999")) << "only the last one is kept open";
    EXPECT_TRUE(IsOpen("20200104999"));
    test::SlowDisk disk;
    disk.Fail(".log", EIO);
    EXPECT_EQ(write(), hr::deviceError);
    disk.Unblock();
    EXPECT_EQ(store.List(), Names{"20200102999"}) << "given up";
    EXPECT_EQ(write(), hr::deviceError) << "of the second";
    EXPECT_EQ(store.List(), (Names{"20200101999", "20200102999", "20200103999", "20200104999"}));
}

TEST_F(MasterWrite, SilentKeysCanNotLeaveTheStore) {
    const std::string start = "p<begin_time>";
    const struct {
        std::string key;
        std::size_t left;
    } rows[] = {
        {"r<receive_time>2026-11-12T", 1},
        {start + "2026-1", 1},
        {start + "../../ab--", 0},
        {start + "..\\..\\ab--", 0},
        {start + std::string("2026\0001112", 8) + "--", 0},
        {start + "2026\xFF\x31\x31\x32--", 0},
    };
    for (const auto& row : rows) {
        RecordBatch batch{{row.key, "{}"}};
        const test::RecordingReports reports;
        EXPECT_EQ(db->WriteSilentRecords(batch), hr::fail) << row.key;
        ASSERT_EQ(reports.Count(), 1u) << row.key;
        EXPECT_EQ(reports.At(0).Details().at(0).second, "1") << row.key;
        EXPECT_EQ(batch.size(), row.left) << row.key;
        EXPECT_TRUE(store.List().empty()) << row.key;
    }
    RecordBatch mixed{{"a", "no date"},
                      {Key("2026-11-11", 1), "{}"},
                      {start + "2026-1", "no date"},
                      {Key("2026-11-12", 1), "{}"},
                      {"x", "no date"}};
    const test::RecordingReports reports;
    EXPECT_EQ(db->WriteSilentRecords(mixed), hr::fail);
    ASSERT_EQ(reports.Count(), 1u);
    EXPECT_EQ(reports.At(0).Label(), wm::reportLabel::lostBatch);
    EXPECT_EQ(reports.At(0).Details().at(0).second, "3");
    EXPECT_EQ(mixed.size(), 3u) << "they stay in the batch";
    EXPECT_EQ(store.List(), (Names{"20261111999", "20261112999"})) << "the others are written";
}

TEST_F(MasterWrite, StoreDirectoryIsNeverMade) {
    wm::SetPathToken(L"%ZELDataStore%", store.Folder("missing"));
    ZelMasterDatabase early;
    EXPECT_EQ(early.LoadExistingDatabases(), hr::nothingToDo);
    RecordBatch batch = test::Rows(1);
    EXPECT_EQ(early.WriteRecords(batch), hr::notFound);
    EXPECT_TRUE(store.List().empty());
    store.MakeFolder("missing");
    EXPECT_EQ(early.WriteRecords(batch), hr::ok);
}

TEST_F(MasterWrite, ASettingChoosesTheBlocksOfNewTables) {
    const auto bytesOf = [this](const std::string& folder, std::uint32_t blockSize) {
        EXPECT_EQ(db->SetBlockSize(blockSize), hr::ok);
        Put(folder, test::Rows(3000));
        EXPECT_FALSE(IsOpen(folder));  // an opening makes a table of the log
        std::uint64_t bytes = 0;
        for (const auto& entry : std::filesystem::directory_iterator(store.Path() / folder))
            bytes += entry.path().extension() == ".ldb" ? entry.file_size() : 0;
        return bytes;
    };
    const std::uint64_t small = bytesOf("20261101", 0);
    EXPECT_LT(bytesOf("20261102", 0x10000), small) << "they compress better";
    for (const std::uint32_t bytes : {1U, leastBlockBytes - 1, mostBlockBytes + 1})
        EXPECT_EQ(db->SetBlockSize(bytes), hr::invalidArgument) << bytes;
    Restart();
    EXPECT_EQ(ScanAll().size(), 6000u);
}

}  // namespace
}  // namespace ZEL
