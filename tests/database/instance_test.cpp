#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "databasefixture.h"
#include "otherprocess.h"
#include "support/slowdisk.h"
#include "zelstore/database/foldergate.h"

namespace ZEL {
namespace {

using test::Rows;
using InstancePtr = std::shared_ptr<LevelDbInstance>;

const std::string name = "20261112";

class InstanceTest : public testing::Test {
protected:
    // A closed database with rows in a log, which the next opening moves to a table.
    void MakeDatabase() {
        LevelDbInstanceProxy writer(store.Folder(name));
        ASSERT_EQ(writer.Write(Rows(10)), hr::ok);
    }
    std::string FileLike(const std::string& part) {
        for (const std::string& file : store.List(name))
            if (file.find(part) != std::string::npos)
                return name + "/" + file;
        ADD_FAILURE() << "no file " << part;
        return {};
    }
    mode_t ModeOf(const std::string& file) {
        struct stat info {};
        EXPECT_EQ(::stat((store.Path() / name / file).c_str(), &info), 0) << file;
        return info.st_mode & 0777;
    }
    HRESULT Open(IfMissing ifMissing) {
        LevelDbInstanceProxy proxy(store.Folder(name));
        InstancePtr instance;
        return proxy.GetInstance(&instance, ifMissing);
    }

    test::TempStore store;
};

TEST_F(InstanceTest, OpeningWithoutCreateLeavesForeignFoldersAlone) {
    EXPECT_EQ(Open(IfMissing::fail), hr::fail);
    EXPECT_FALSE(store.Exists(name));
    store.MakeFolder(name);
    store.WriteFile(name + "/notes.txt", "mine");
    EXPECT_EQ(Open(IfMissing::fail), hr::fail);
    EXPECT_EQ(store.List(name), std::set<std::string>{"notes.txt"});
    std::filesystem::create_directory_symlink(store.Path(), store.Path() / "link");
    LevelDbInstanceProxy linked(store.Folder("link"));
    EXPECT_EQ(linked.Hold(IfMissing::create), hr::fail) << "links are not followed";
    EXPECT_FALSE(store.Exists("CURRENT"));
}

TEST_F(InstanceTest, WhatIsBrokenTellsHow) {
    const struct {
        const char* what;
        std::function<void()> breakIt;
        HRESULT expected;
    } rows[] = {
        {"garbage in CURRENT", [&] { store.WriteFile(name + "/CURRENT", "rubbish"); }, hr::corrupt},
        {"CURRENT names nothing", [&] { store.WriteFile(name + "/CURRENT", "MANIFEST-999999\n"); },
         hr::corrupt},
        {"damaged manifest", [&] { store.WriteFile(FileLike("MANIFEST"), "rubbish, long enough"); },
         hr::corrupt},
        {"missing table", [&] { std::filesystem::remove(store.Path() / FileLike(".ldb")); },
         hr::corrupt},
        {"a file in its place",
         [&] {
             std::filesystem::remove_all(store.Path() / name);
             store.WriteFile(name, "");
         },
         hr::fail},
    };
    test::FakeFreeSpace volume(0);
    for (const auto& row : rows) {
        for (const std::uint64_t room : {1ULL << 40, 0ULL}) {  // without room it reads alone
            std::filesystem::remove_all(store.Path() / name);
            volume.SetBytes(1ULL << 40);
            MakeDatabase();
            ASSERT_EQ(Open(IfMissing::fail), hr::ok);
            row.breakIt();
            volume.SetBytes(room);
            EXPECT_EQ(Open(IfMissing::fail), row.expected) << row.what << ", room " << room;
        }
    }
    volume.SetBytes(1ULL << 40);
    EXPECT_EQ(Open(IfMissing::create), hr::deviceError)
        << "a file in the place of a folder to be made";
}

TEST_F(InstanceTest, WhatALogHasLostIsReported) {
    MakeDatabase();
    std::fstream log(store.Path() / FileLike(".log"), std::ios::in | std::ios::out);
    log.seekp(40) << '?';
    log.close();
    const test::RecordingReports reports;
    test::FakeFreeSpace volume(0);
    EXPECT_EQ(Open(IfMissing::fail), hr::ok);
    volume.SetBytes(1ULL << 40);
    EXPECT_EQ(Open(IfMissing::fail), hr::ok);
    ASSERT_EQ(reports.Count(), 2u) << "one that reads alone changes nothing";
    for (std::size_t i = 0; i < 2; ++i)
        EXPECT_EQ(reports.At(i).Label(), wm::reportLabel::damagedData);
}

TEST_F(InstanceTest, ALogThatCantBeReadKeepsItsRows) {
    MakeDatabase();
    test::SlowDisk disk;
    disk.FailReads(".log", EIO);
    EXPECT_EQ(Open(IfMissing::fail), hr::accessDenied) << "the library would drop it";
    disk.Unblock();
    LevelDbInstanceProxy proxy(store.Folder(name));
    ASSERT_EQ(proxy.Hold(IfMissing::fail), hr::ok);
    std::string value;
    EXPECT_EQ(proxy.PeekInstance()->Get(test::Key("2026-11-12", 3), &value), hr::ok);
}

TEST_F(InstanceTest, MakesFilesForTheOwnerAloneAndOpensRegularOnes) {
    for (const mode_t mask : {0000, 0777}) {
        std::filesystem::remove_all(store.Path() / name);
        const mode_t former = ::umask(mask);
        MakeDatabase();
        EXPECT_EQ(Open(IfMissing::fail), hr::ok);
        ::umask(former);
        EXPECT_EQ(ModeOf(""), 0700u);
        for (const std::string& file : store.List(name))
            EXPECT_EQ(ModeOf(file), 0600u) << file;
    }
    const struct {
        const char* kind;
        HRESULT opened, read;  // tables are opened by those who read them
    } rows[] = {{"CURRENT", hr::fail, hr::fail},
                {"LOCK", hr::fail, hr::fail},
                {"MANIFEST", hr::fail, hr::fail},
                {".log", hr::ok, hr::ok},
                {".ldb", hr::ok, hr::fail}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.kind);
        std::filesystem::remove_all(store.Path() / name);
        MakeDatabase();
        ASSERT_EQ(Open(IfMissing::fail), hr::ok);
        const std::filesystem::path path = store.Path() / FileLike(row.kind);
        std::filesystem::remove(path);
        ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
        LevelDbInstanceProxy proxy(store.Folder(name));
        InstancePtr instance;
        EXPECT_EQ(proxy.GetInstance(&instance, IfMissing::create), row.opened);
        std::string value;
        EXPECT_EQ(instance ? instance->Get(test::Key("2026-11-12", 3), &value) : hr::fail,
                  row.read);
    }
}

TEST_F(InstanceTest, UsersShareOneInstanceAndHoldsKeepIt) {
    MakeDatabase();
    LevelDbInstanceProxy proxy(store.Folder(name));
    {
        InstancePtr first, second;
        ASSERT_EQ(proxy.GetInstance(&first, IfMissing::fail), hr::ok);
        ASSERT_EQ(proxy.GetInstance(&second, IfMissing::fail), hr::ok);
        EXPECT_EQ(first, second);
    }
    EXPECT_EQ(proxy.PeekInstance(), nullptr) << "the last user closes it";
    ASSERT_EQ(proxy.Hold(IfMissing::fail), hr::ok);
    ASSERT_EQ(proxy.Hold(IfMissing::fail), hr::ok);
    proxy.Release();
    EXPECT_NE(proxy.PeekInstance(), nullptr) << "held twice, let go once";
    proxy.Release();
    proxy.Release();
    EXPECT_EQ(proxy.PeekInstance(), nullptr);
    ASSERT_EQ(proxy.Hold(IfMissing::fail), hr::ok) << "a release too many does no harm";
    proxy.Release();
    EXPECT_EQ(proxy.PeekInstance(), nullptr);
}

TEST_F(InstanceTest, MarkedFolderMakesPlaceAndGoesWithItsLastUser) {
    MakeDatabase();
    auto proxy = std::make_unique<LevelDbInstanceProxy>(store.Folder(name));
    InstancePtr user;
    ASSERT_EQ(proxy->GetInstance(&user, IfMissing::fail), hr::ok);
    proxy->MarkForDeletion();
    EXPECT_EQ(store.List(), std::set<std::string>{name + ".removed"});
    LevelDbInstanceProxy next(store.Folder(name));
    ASSERT_EQ(next.Write(Rows(1)), hr::ok) << "its place is free";
    proxy->MarkForDeletion();
    InstancePtr nextUser;
    ASSERT_EQ(next.GetInstance(&nextUser, IfMissing::fail), hr::ok) << "another's by now";
    next.MarkForDeletion();
    EXPECT_EQ(next.Write(Rows(1)), hr::notFound) << "nobody would find it";
    EXPECT_EQ(store.List(), (std::set<std::string>{name + ".removed", name + ".removed-2"}));
    std::string value;
    EXPECT_EQ(user->Get(test::Key("2026-11-12", 3), &value), hr::ok) << "it still serves its user";
    user.reset();
    nextUser.reset();
    EXPECT_TRUE(store.List().empty());
    EXPECT_EQ(Open(IfMissing::create), hr::ok);
    LevelDbInstanceProxy(store.Folder(name)).MarkForDeletion();
    EXPECT_FALSE(store.Exists(name)) << "nobody uses it: it goes at once";
}

TEST_F(InstanceTest, OpenersWaitForACloseThatIsStillToCome) {
    MakeDatabase();
    const auto gate = FolderGate::For(store.Folder(name));
    for (int round = 0; round < 50; ++round) {
        {
            const wm::Hold hold(gate->lock);
            gate->SetOpen({});  // the last user has let go, its closing has not begun
        }
        std::atomic<bool> isOpening{false};
        std::thread opener([&] {
            isOpening = true;
            EXPECT_EQ(Open(IfMissing::fail), hr::ok) << "in round " << round;
        });
        while (!isOpening)
            std::this_thread::yield();
        {
            const wm::Hold hold(gate->lock);
            gate->SetClosed();
        }
        opener.join();
    }
}

TEST_F(InstanceTest, OpenersNeverMeetARemovalHalfWay) {
    for (int round = 0; round < 40; ++round) {
        auto former = std::make_shared<LevelDbInstanceProxy>(store.Folder(name));
        InstancePtr user;
        ASSERT_EQ(former->Write(Rows(50)), hr::ok);
        ASSERT_EQ(former->GetInstance(&user, IfMissing::create), hr::ok);
        former->MarkForDeletion();
        std::thread closer([&user] { user.reset(); });
        LevelDbInstanceProxy next(store.Folder(name));
        HRESULT result = hr::deviceError;
        while (result == hr::deviceError)  // the former one is still in use
            result = next.Hold(IfMissing::create);
        closer.join();
        ASSERT_EQ(result, hr::ok);
        ASSERT_EQ(next.Write(Rows(1)), hr::ok);
        next.Release();
        ASSERT_EQ(Open(IfMissing::fail), hr::ok)
            << "what the former one removed is not the new one's";
        std::filesystem::remove_all(store.Path() / name);
    }
}

TEST_F(InstanceTest, FolderOfAnotherProcessIsNeitherOpenedNorRemoved) {
    const test::OtherProcess owner(store.Folder(name));
    LevelDbInstanceProxy proxy(store.Folder(name));
    EXPECT_EQ(proxy.Hold(IfMissing::fail), hr::sharingViolation);
    EXPECT_EQ(proxy.Write(Rows(1)), hr::sharingViolation);
    proxy.MarkForDeletion();
    EXPECT_TRUE(store.Exists(name + "/CURRENT"));
    EXPECT_FALSE(store.Exists(name + "/LOG.old")) << "the library was not asked";
}

TEST_F(InstanceTest, RefusesABatchWithoutRoomBeforeItTouchesTheDisk) {
    test::FakeFreeSpace volume(0);
    LevelDbInstanceProxy proxy(store.Folder(name));
    EXPECT_EQ(proxy.Write(Rows(1)), hr::diskFull);
    EXPECT_EQ(proxy.Hold(IfMissing::create), hr::diskFull);
    EXPECT_FALSE(store.Exists(name)) << "a folder begun now would be no database later";
    volume.SetBytes(1ULL << 30);
    EXPECT_EQ(proxy.Write(Rows(1)), hr::ok);
    volume.SetBytes(0);
    EXPECT_EQ(proxy.Hold(IfMissing::fail), hr::ok) << "reading needs no room";
    EXPECT_EQ(proxy.Write(Rows(1)), hr::diskFull);
    volume.SetResult(hr::fail);
    EXPECT_EQ(proxy.Write(Rows(1)), hr::ok) << "a volume that can't be asked";
}

TEST_F(InstanceTest, PrefixReadsShareASnapshotUntilItIsReleased) {
    LevelDbInstanceProxy proxy(store.Folder(name));
    ASSERT_EQ(proxy.Write({{"a", "0"}, {"ab1", "1"}, {"ab2", "2"}, {"b", "3"}}), hr::ok);
    ASSERT_EQ(proxy.Hold(IfMissing::fail), hr::ok);
    const InstancePtr instance = proxy.PeekInstance();
    std::vector<std::string> values{"kept"};
    EXPECT_EQ(instance->ReadPrefix("x", &values), hr::ok);
    EXPECT_EQ(instance->ReadPrefix("ab", &values), hr::ok);
    ASSERT_EQ(proxy.Write({{"ab3", "late"}}), hr::ok);
    EXPECT_EQ(instance->ReadPrefix("ab3", &values), hr::ok);
    EXPECT_EQ(values, (std::vector<std::string>{"kept", "1", "2"})) << "of the snapshot";
    proxy.Release(LevelDbInstanceProxy::Cursor::drop);
    EXPECT_EQ(instance->ReadPrefix("ab3", &values), hr::ok);
    EXPECT_EQ(values.back(), "late");
}

TEST_F(InstanceTest, OneRecordThatIsNotSilentSpoilsTheRead) {
    const struct {
        std::string flags;  // one record each; - means without a mark
        bool collect, hasOther;
        std::size_t values;
    } rows[] = {{"11", true, false, 2},  {"11", false, false, 0}, {"110", true, true, 0},
                {"-1-", true, false, 3}, {"1x", true, true, 0},   {"", true, false, 0}};
    LevelDbInstanceProxy proxy(store.Folder(name));
    ASSERT_EQ(proxy.Hold(IfMissing::create), hr::ok);
    const InstancePtr instance = proxy.PeekInstance();
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        const std::string prefix = test::Key("2026-11-12", static_cast<int>(row));
        RecordBatch batch;
        for (const char flag : rows[row].flags) {
            const std::string number = std::to_string(batch.size());
            const std::string mark = flag == '-' ? "" : std::string("<silent_enrichment>") + flag;
            batch[prefix + "<silent_sequence>" + number + mark] = "{}";
        }
        ASSERT_EQ(proxy.Write(batch), hr::ok);
        instance->ReleaseCursor();
        bool hasOther = !rows[row].hasOther;
        std::vector<std::string> values;
        EXPECT_EQ(instance->ReadSilentPrefix(prefix, &hasOther, rows[row].collect, &values),
                  hr::ok);
        EXPECT_EQ(hasOther, rows[row].hasOther) << rows[row].flags;
        EXPECT_EQ(values.size(), rows[row].values) << rows[row].flags;
    }
}

}  // namespace
}  // namespace ZEL
