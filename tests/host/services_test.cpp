#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "common/countedptr.h"
#include "common/eventobject.h"
#include "common/filesystem.h"
#include "common/hostservices.h"
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

TEST_F(SettingsTest, BrokenFileIsToldAndLeftAsItIs) {
    for (const char* text : {"[a\n", "A=1\n", "[ZEL\\Settings\\FDR]\nA=x\n",
                             "[ZEL\\Settings\\FDR]\nA=4294967296\n", "[s]\nno value\n"}) {
        folder_.WriteFile("settings.ini", text);
        test::RecordingReports reports;
        std::uint32_t value = 0;
        EXPECT_EQ(Read(L"A", &value), TOBERR_FAIL) << text;
        ASSERT_EQ(reports.Count(), 1u) << text;
        EXPECT_NE(reports.At(0).Details().front().second.find("settings.ini"), std::string::npos);
        std::string left;
        ASSERT_EQ(ReadWholeFile(file_, &left), hr::ok);
        EXPECT_EQ(left, text);
    }
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
        std::int64_t AddRef() override { return 2; }
        std::int64_t Release() override { return 1; }
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
        EventObject ended;
    } statuses;
    ASSERT_TRUE(statuses.ended.Create(false, false));
    ASSERT_EQ(manager->SetStatusCallback(&statuses), hr::ok);
    EventObject go;
    ASSERT_TRUE(go.Create(false, false));
    const auto run = [](void* context) {
        const HANDLE handle = static_cast<EventObject*>(context)->Handle();
        EXPECT_EQ(WaitForAny(1, &handle, waitForever), 0u);
        return hr::fail;
    };
    ASSERT_EQ(registry->RegisterJob(storeJobId, run, &go), hr::ok);
    ASSERT_EQ(job->Start(0), hr::ok);
    EXPECT_EQ(job->Start(0), jobAlreadyRunning);
    go.Set();
    const HANDLE ended = statuses.ended.Handle();
    ASSERT_EQ(WaitForAny(1, &ended, waitForever), 0u);
    EXPECT_EQ(statuses.codes, (std::vector<std::int32_t>{jobStatus::running, jobStatus::failed}));
    ASSERT_EQ(manager->SetStatusCallback(nullptr), hr::ok);
}

}  // namespace
}  // namespace wm
