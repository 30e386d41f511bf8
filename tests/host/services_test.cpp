#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "common/countedptr.h"
#include "common/eventobject.h"
#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/workerthread.h"
#include "support/storefixture.h"

namespace wm {
namespace {

namespace fs = std::filesystem;
using namespace ZEL;
using test::TempStore;

TEST(FileSystem, NeverFollowsLinks) {
    TempStore outside, store;
    outside.WriteFile("kept", "12345");
    store.MakeFolder("real");
    store.WriteFile("real/a.ldb", "123");
    store.WriteFile("real/a.ldbx", "1");
    fs::create_directory_symlink(outside.Path(), store.Path() / "link");
    fs::create_directory_symlink(outside.Path(), store.Path() / "real" / "inner");
    fs::create_symlink(outside.Path() / "kept", store.Path() / "real" / "b.ldb");

    std::vector<std::wstring> folders;
    ASSERT_EQ(ListDirectories(store.WidePath(), folders), hr::ok);
    EXPECT_EQ(folders, std::vector<std::wstring>{store.Folder("real")});
    EXPECT_EQ(CountFiles(store.Folder("real"), L".ldb"), 1u);
    EXPECT_TRUE(IsLink(store.Folder("link")));
    EXPECT_FALSE(IsLink(store.Folder("real")));
    fs::create_directory_symlink(store.Path() / "real", store.Path() / "again");
    EXPECT_EQ(CountFiles(store.Folder("again"), L".ldb"), 0u);
    std::uint64_t bytes = 0;
    ASSERT_EQ(FolderSize(store.WidePath(), &bytes), hr::ok);
    EXPECT_EQ(bytes, 4u);
    ASSERT_EQ(RemoveTree(store.Folder("real")), hr::ok);
    EXPECT_FALSE(store.Exists("real"));
    EXPECT_TRUE(outside.Exists("kept"));
    EXPECT_EQ(RemoveTree(store.Folder("real")), hr::ok) << "what is gone is gone";
    EXPECT_EQ(FolderSize(store.Folder("real"), &bytes), hr::ok);
    EXPECT_EQ(bytes, 0u);
    EXPECT_TRUE(Failed(ListDirectories(store.Folder("real"), folders)));
    std::ofstream(store.Path() / "no\xFFutf8");
    fs::create_directory(store.Path() / "dir\xFF");
    folders.clear();
    ASSERT_EQ(ListDirectories(store.WidePath(), folders), hr::ok);
    EXPECT_TRUE(folders.empty()) << "a name that is not UTF-8 is passed over";
}

TEST(FileSystem, ReplacesFilesAsAWholeAndReadsOnlyFiles) {
    TempStore store;
    const std::wstring path = store.Folder("f");
    std::string text = "before";
    EXPECT_EQ(ReadWholeFile(path, &text), hr::Code(0x80070003));
    for (const std::string& content :
         {std::string(), std::string("a\0b", 3), std::string(9999, 'x')}) {
        ASSERT_EQ(ReplaceFile(path, content), hr::ok);
        ASSERT_EQ(ReadWholeFile(path, &text), hr::ok);
        EXPECT_EQ(text, content);
    }
    fs::permissions(store.Path() / "f", fs::perms::all);
    ASSERT_EQ(ReplaceFile(path, "private"), hr::ok);
    EXPECT_EQ(fs::status(store.Path() / "f").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(store.Path() / "f", store.Path() / "link");
    EXPECT_TRUE(Failed(ReadWholeFile(store.Folder("link"), &text)));
    EXPECT_TRUE(Failed(ReadWholeFile(store.WidePath(), &text)));
    store.MakeFolder("folder");
    EXPECT_TRUE(Failed(ReplaceFile(store.Folder("folder"), "x")));
    EXPECT_TRUE(Failed(ReplaceFile(store.Folder("none/f"), "x")));
    EXPECT_TRUE(Failed(ReplaceFile(path + std::wstring(L"\0tail", 5), "x")));
    EXPECT_EQ(store.List(), (std::set<std::string>{"f", "link", "folder"}))
        << "nothing is left over";
}

TEST(FileSystem, WhatVanishesDuringTheWalkCountsNothing) {
    TempStore store;
    for (int i = 0; i < 200; ++i)
        store.WriteFile("f" + std::to_string(i), "12345");
    store.WriteFile("stays", "1");
    WorkerThread remover;
    ASSERT_TRUE(remover.Start([&] {
        for (int i = 0; i < 200; ++i)
            fs::remove(store.Path() / ("f" + std::to_string(i)));
        return hr::ok;
    }));
    std::uint64_t bytes = 0;
    while (remover.IsRunning()) {
        ASSERT_EQ(FolderSize(store.WidePath(), &bytes), hr::ok);
        EXPECT_TRUE(bytes % 5 == 1 && bytes <= 1001) << bytes;
    }
    ASSERT_EQ(FolderSize(store.WidePath(), &bytes), hr::ok);
    EXPECT_EQ(bytes, 1u);
}

TEST(FileSystem, SeesTheLockOfAnotherProcess) {
    TempStore store;
    store.WriteFile("LOCK", "");
    const std::string file = (store.Path() / "LOCK").string();
    EXPECT_FALSE(IsLockedByAnotherProcess(store.Folder("LOCK")));
    EXPECT_FALSE(IsLockedByAnotherProcess(store.Folder("none")));
    int ready[2], end[2];
    ASSERT_TRUE(::pipe(ready) == 0 && ::pipe(end) == 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(end[1]);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        const int locked = ::open(file.c_str(), O_RDWR);
        char byte = ::fcntl(locked, F_SETLK, &lock) == 0 ? '1' : '0';
        const bool told = ::write(ready[1], &byte, 1) == 1 && ::read(end[0], &byte, 1) == 0;
        ::_exit(told ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, '1');
    EXPECT_TRUE(IsLockedByAnotherProcess(store.Folder("LOCK")));
    ::close(end[1]);
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(IsLockedByAnotherProcess(store.Folder("LOCK")));
}

// The settings service as the store finds it: loaded from its component.
class SettingsTest : public testing::Test {
protected:
    void SetUp() override {
        SetPathToken(L"%ZELSettingsFile%", file_);
        ASSERT_EQ(OpenSettings(manager_.Receive()), TOB_OK);
    }
    TobResult Write(std::uint32_t value) {
        CountedPtr<ISettingsKey> key;
        EXPECT_EQ(manager_->OpenKey(L"ZEL\\Settings\\FDR", key.Receive()), TOB_OK);
        EXPECT_EQ(key->WriteNumber(L"A", value), TOB_OK);
        return manager_->PutBack(key.Get());
    }
    TobResult Read(const wchar_t* name, std::uint32_t* value) {
        CountedPtr<ISettingsKey> key;
        const TobResult result = manager_->OpenKey(L"ZEL\\Settings\\FDR", key.Receive());
        return Failed(result) ? result : key->ReadNumber(name, value);
    }

    TempStore folder_;
    const std::wstring file_ = folder_.Folder("settings.ini");
    CountedPtr<ISettingsManager> manager_;
};

TEST_F(SettingsTest, LiveInOneReadableFile) {
    std::uint32_t value = 0;
    EXPECT_EQ(Read(L"A", &value), TOBERR_NOT_FOUND);
    ASSERT_EQ(Write(4294967295U), TOB_OK);
    EXPECT_EQ(Read(L"A", &value), TOB_OK);
    EXPECT_EQ(value, 4294967295U);
    std::string text;
    ASSERT_EQ(ReadWholeFile(file_, &text), hr::ok);
    EXPECT_EQ(text, "[ZEL\\Settings\\FDR]\nA=4294967295\n");
    struct stat info {};
    ASSERT_EQ(::stat((folder_.Path() / "settings.ini").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    EXPECT_EQ(folder_.List(), std::set<std::string>{"settings.ini"}) << "nothing else is left";
    folder_.WriteFile("settings.ini", "[other]\nB=1\n[ZEL\\Settings\\FDR]\nA=5\n");
    EXPECT_EQ(Read(L"A", &value), TOB_OK);
    EXPECT_EQ(value, 5u) << "changes of others are seen";
    ASSERT_EQ(Write(6), TOB_OK);
    ASSERT_EQ(ReadWholeFile(file_, &text), hr::ok);
    EXPECT_NE(text.find("[other]\nB=1\n"), std::string::npos) << text;
}

TEST_F(SettingsTest, PutBackChangesOnlyWhatWasWritten) {
    CountedPtr<ISettingsKey> early;
    ASSERT_EQ(Write(1), TOB_OK);
    ASSERT_EQ(manager_->OpenKey(L"ZEL\\Settings\\FDR", early.Receive()), TOB_OK);
    ASSERT_EQ(Write(2), TOB_OK);
    ASSERT_EQ(early->WriteNumber(L"B", 9), TOB_OK);
    ASSERT_EQ(manager_->PutBack(early.Get()), TOB_OK);
    std::uint32_t value = 0;
    EXPECT_EQ(Read(L"A", &value), TOB_OK);
    EXPECT_EQ(value, 2u);
    EXPECT_EQ(Read(L"B", &value), TOB_OK);
    EXPECT_EQ(value, 9u);
}

TEST_F(SettingsTest, NamesThatTheFileCannotHoldAreRefused) {
    CountedPtr<ISettingsKey> key;
    for (const wchar_t* name : {L"", L" a", L"a ", L"a=b", L"[a", L"a]", L"a\nb", L";a", L"#a"}) {
        EXPECT_EQ(manager_->OpenKey(name, key.Receive()), TOBERR_INVALID_ARG);
        ASSERT_EQ(manager_->OpenKey(L"K", key.Receive()), TOB_OK);
        EXPECT_EQ(key->WriteNumber(name, 1), TOBERR_INVALID_ARG);
    }
    const wchar_t* const odd = L"a.b c;#\\\u00E9";
    ASSERT_EQ(manager_->OpenKey(odd, key.Receive()), TOB_OK);
    ASSERT_EQ(key->WriteNumber(odd, 7), TOB_OK);
    ASSERT_EQ(manager_->PutBack(key.Get()), TOB_OK);
    ASSERT_EQ(manager_->OpenKey(odd, key.Receive()), TOB_OK);
    std::uint32_t value = 0;
    EXPECT_EQ(key->ReadNumber(odd, &value), TOB_OK);
    EXPECT_EQ(value, 7u);
}

TEST_F(SettingsTest, WithoutAFileTheyLiveInMemory) {
    SetPathToken(L"%ZELSettingsFile%", L"");
    std::uint32_t value = 0;
    ASSERT_EQ(Write(3), TOB_OK);
    EXPECT_EQ(Read(L"A", &value), TOB_OK);
    EXPECT_EQ(value, 3u);
    EXPECT_TRUE(folder_.List().empty());
    SetPathToken(L"%ZELSettingsFile%", file_);
    folder_.WriteFile("settings.ini", "");
    EXPECT_EQ(Read(L"A", &value), TOBERR_NOT_FOUND) << "an empty file is no broken one";
}

TEST_F(SettingsTest, BrokenFileIsToldAndLeftAsItIs) {
    const struct {
        const char* text;
        const char* line;
    } rows[] = {
        {"[a\n", "line 1: "},
        {"A=1\n", "line 1: "},
        {"[s]\nno value\n", "line 2: "},
        {"[b]\nA=1\n\n[ZEL\\Settings\\FDR]\nA=x\n", "line 5: "},
        {"[ZEL\\Settings\\FDR]\n; note\n A = 4294967296\n", "line 3: "},
        {"[s]\nA=-1\n", "line 2: "},
        {"[s]\nA=\n", "line 2: "},
        {"[s]\nA=1 2\n", "line 2: "},
        {"[s]\nA=1\nA=2\n", "line 3: "},
    };
    for (const auto& row : rows) {
        folder_.WriteFile("settings.ini", row.text);
        test::RecordingReports reports;
        std::uint32_t value = 0;
        EXPECT_EQ(Read(L"A", &value), TOBERR_FAIL) << row.text;
        ASSERT_EQ(reports.Count(), 1u) << row.text;
        const auto details = reports.At(0).Details();
        EXPECT_EQ(details.front().second, (folder_.Path() / "settings.ini").string());
        EXPECT_EQ(details.back().second.rfind(row.line, 0), 0u) << details.back().second;
        std::string left;
        ASSERT_EQ(ReadWholeFile(file_, &left), hr::ok);
        EXPECT_EQ(left, row.text);
    }
}

TEST(Services, TokensComeFromTheHostAndElseTheEnvironment) {
    std::wstring value;
    ASSERT_EQ(::setenv("ZEL_TEST_TOKEN", "/from/environment", 1), 0);
    EXPECT_TRUE(ResolvePathVariable(L"%ZEL_TEST_TOKEN%", value));
    EXPECT_EQ(value, L"/from/environment");
    SetPathToken(L"%ZEL_TEST_TOKEN%", L"/told");
    EXPECT_TRUE(ResolvePathVariable(L"%ZEL_TEST_TOKEN%", value));
    EXPECT_EQ(value, L"/told");
    for (const wchar_t* none : {L"", L"%", L"%%", L"%ZEL_NO_SUCH_TOKEN%"})
        EXPECT_FALSE(ResolvePathVariable(none, value)) << value.size();
}

TEST(Services, LoaderTellsWhatIsWrong) {
    void* out = nullptr;
    const GUID unknown = MakeGuid("11111111-2222-3333-4444-555555555555");
    EXPECT_EQ(LoadInstalledObject(L"nosuch", unknown, unknown, &out), TOBERR_BAD_LIBRARY);
    EXPECT_EQ(LoadInstalledObject(L"wmSet", unknown, unknown, &out), TOBERR_INVALID_ARG);
    EXPECT_EQ(LoadInstalledObject(L"libwmLib", unknown, unknown, &out), TOBERR_PROC_NOT_FOUND);
    EXPECT_EQ(LoadInstalledObject(std::wstring(300, L'x'), unknown, unknown, &out),
              TOBERR_BAD_LIBRARY);
    EXPECT_EQ(LoadInstalledObject(L"wmSet", settingsManagerObjectId, unknown, &out),
              TOBERR_NO_INTERFACE);
    EXPECT_EQ(out, nullptr);
}

TEST(Services, JobsRunOnThreadsOfTheirOwn) {
    CountedPtr<IJobManager> manager;
    ASSERT_EQ(OpenJobManager(manager.Receive()), TOB_OK);
    CountedPtr<IJobRegistry> registry;
    ASSERT_EQ(manager->QueryInterface(iidJobRegistry, registry.ReceiveVoid()), TOB_OK);
    CountedPtr<IJob> job;
    EXPECT_EQ(manager->GetJob(MakeGuid("11111111-2222-3333-4444-555555555555"), job.Receive()),
              hr::notFound);
    ASSERT_EQ(manager->GetJob(storeJobId, job.Receive()), hr::ok);

    struct Statuses final : public wmJobMgr::IStatusCallback {
        TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
        std::int64_t AddRef() override { return ++references; }
        std::int64_t Release() override {
            const std::int64_t left = --references;
            if (left == 0)
                released.Set();
            return left;
        }
        HRESULT OnStatusChanged(IJobStatus* status) override {
            std::int32_t code = 0;
            EXPECT_TRUE(status->GetStatusCode(&code));
            codes.push_back(code);
            if (code != jobStatus::running)
                ended.Set();
            return hr::ok;
        }
        HRESULT Reserved() override { return hr::ok; }
        std::vector<std::int32_t> codes;
        std::atomic<std::int64_t> references{0};
        EventObject ended, released;
    } statuses;
    ASSERT_TRUE(statuses.ended.Create(false, false) && statuses.released.Create(false, false));
    ASSERT_EQ(manager->SetStatusCallback(&statuses), hr::ok);
    EventObject go;
    ASSERT_TRUE(go.Create(false, false));
    const auto run = [](void* context, HANDLE) {
        const HANDLE handle = static_cast<EventObject*>(context)->Handle();
        EXPECT_EQ(WaitForAny(1, &handle, waitForever), 0u);
        return hr::fail;
    };
    ASSERT_EQ(registry->RegisterJob(storeJobId, nullptr, run, &go), hr::ok);
    ASSERT_EQ(job->Start(0), hr::ok);
    EXPECT_EQ(job->Start(0), jobAlreadyRunning);
    go.Set();
    const HANDLE ended = statuses.ended.Handle();
    ASSERT_EQ(WaitForAny(1, &ended, waitForever), 0u);
    EXPECT_EQ(statuses.codes, (std::vector<std::int32_t>{jobStatus::running, jobStatus::failed}));

    ASSERT_EQ(registry->RegisterJob(storeJobId, nullptr, nullptr, nullptr), hr::ok);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(job->Start(0), hr::ok) << "who was told of the end may start it again, " << i;
        ASSERT_EQ(WaitForAny(1, &ended, waitForever), 0u);
    }
    EXPECT_EQ(statuses.codes.size(), 202u);
    EXPECT_EQ(statuses.codes.back(), jobStatus::ended);
    ASSERT_EQ(manager->SetStatusCallback(nullptr), hr::ok);
    const HANDLE released = statuses.released.Handle();
    EXPECT_EQ(WaitForAny(1, &released, waitForever), 0u) << "every reference was given back";
}

}  // namespace
}  // namespace wm
