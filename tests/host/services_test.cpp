#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

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
    ASSERT_TRUE(test::LinkFolder(store.Path() / "real", store.Path() / "link") &&
                test::LinkFolder(outside.Path(), store.Path() / "real" / "inner"));
    test::LinkFile(outside.Path() / "kept", store.Path() / "real" / "b.ldb");
    test::MakeFolderWithoutUnicode(store.Path());

    std::vector<std::wstring> folders;
    ASSERT_EQ(ListDirectories(store.WidePath(), folders), hr::ok);
    EXPECT_EQ(folders, std::vector<std::wstring>{store.Folder("real")});
    EXPECT_EQ(CountFiles(store.Folder("real"), L".ldb"), 1u);
    EXPECT_EQ(CountFiles(store.Folder("link"), L".ldb"), 0u);
    EXPECT_TRUE(IsLink(store.Folder("link")));
    EXPECT_FALSE(IsLink(store.Folder("real")));
    std::uint64_t bytes = 0;
    ASSERT_EQ(FolderSize(store.WidePath(), &bytes), hr::ok);
    EXPECT_EQ(bytes, 4u);
    const HRESULT removed = RemoveTree(store.Folder("real"));
    EXPECT_TRUE(outside.Exists("kept"));
    if (!test::CanRemoveFolderLinks())
        return;
    EXPECT_EQ(removed, hr::ok);
    EXPECT_FALSE(store.Exists("real"));
    EXPECT_EQ(RemoveTree(store.Folder("real")), hr::ok) << "what is gone is gone";
    EXPECT_EQ(FolderSize(store.Folder("real"), &bytes), hr::ok);
    EXPECT_EQ(bytes, 0u);
    EXPECT_TRUE(Failed(ListDirectories(store.Folder("real"), folders)));
}

TEST(FileSystem, ReplacesFilesAsAWholeAndReadsOnlyFiles) {
    TempStore store;
    const std::wstring path = store.Folder("f");
    std::string text = "before";
    EXPECT_EQ(ReadWholeFile(path, &text), hr::Code(0x80070003));
    for (const std::string& content :
         {std::string(), std::string("a\0b", 3), std::string(9999, 'x')}) {
        ASSERT_EQ(ReplaceWholeFile(path, content), hr::ok);
        ASSERT_EQ(ReadWholeFile(path, &text), hr::ok);
        EXPECT_EQ(text, content);
    }
    test::OpenToOthers(store.Path() / "f");
    EXPECT_FALSE(test::IsForItsOwnerAlone(store.Path() / "f"));
    ASSERT_EQ(ReplaceWholeFile(path, "private"), hr::ok);
    EXPECT_TRUE(test::IsForItsOwnerAlone(store.Path() / "f"));
    std::set<std::string> left = {"f", "folder"};
    if (test::LinkFile(store.Path() / "f", store.Path() / "link")) {
        EXPECT_TRUE(Failed(ReadWholeFile(store.Folder("link"), &text)));
        left.insert("link");
    }
    EXPECT_TRUE(Failed(ReadWholeFile(store.WidePath(), &text)));
    store.MakeFolder("folder");
    EXPECT_TRUE(Failed(ReplaceWholeFile(store.Folder("folder"), "x")));
    EXPECT_TRUE(Failed(ReplaceWholeFile(path + std::wstring(L"\0tail", 5), "x")));
    EXPECT_EQ(store.List(), left) << "nothing is left over";
}

// Each name is as long as a file system takes; together they pass the 260 characters that programs
// for Windows once stopped at.
TEST(FileSystem, LongPathsAreAsGoodAsShortOnes) {
    TempStore store;
    const std::wstring name(100, L'n');
    std::wstring folder = store.WidePath();
    for (int i = 0; i < 4; ++i) {
        folder = JoinPath(folder, name);
        ASSERT_EQ(MakePrivateFolder(folder), hr::ok) << i;
    }
    const std::wstring file = JoinPath(folder, L"a.ldb"), moved = JoinPath(folder, L"b.ldb");
    std::string text;
    std::uint64_t bytes = 0;
    EXPECT_EQ(MakePrivateFile(file), hr::ok);
    EXPECT_EQ(ReplaceWholeFile(file, "12345"), hr::ok);
    EXPECT_EQ(Rename(file, moved), hr::ok);
    EXPECT_EQ(ReadWholeFile(moved, &text), hr::ok);
    EXPECT_EQ(text, "12345");
    EXPECT_FALSE(FileExists(file));
    EXPECT_TRUE(IsRegularFile(moved) && IsDirectory(folder) && !IsRegularFile(folder));
    EXPECT_EQ(CountFiles(folder, L".ldb"), 1u);
    EXPECT_TRUE(CanReadFiles(folder, L".ldb") && CanMakeFilesIn(folder));
    FileBytes mapped;
    ASSERT_EQ(MapFile(moved, &mapped), hr::ok);
    EXPECT_EQ(mapped.bytes, "12345");
    mapped = {};
    ASSERT_EQ(FolderSize(store.WidePath(), &bytes), hr::ok);
    EXPECT_EQ(bytes, 5u);
    EXPECT_EQ(FreeSpace().AvailableBytes(folder, &bytes), hr::ok);
    EXPECT_GT(bytes, 0u);
    const std::wstring top = JoinPath(store.WidePath(), name), renamed = store.Folder("renamed");
    EXPECT_EQ(Rename(top, renamed), hr::ok);
    EXPECT_EQ(RemoveTree(renamed), hr::ok);
    EXPECT_TRUE(store.List().empty());
}

TEST(FileSystem, SeparatorsAtTheEndChangeNothing) {
    TempStore store;
    store.MakeFolder("folder");
    store.WriteFile("folder/f", "12345");
    for (const wchar_t* end : {L"", L"/", L"//", L"/."}) {
        const std::wstring folder = store.Folder("folder") + end;
        std::uint64_t bytes = 0;
        std::vector<std::wstring> names;
        std::vector<FileState> states;
        EXPECT_EQ(FolderSize(folder, &bytes), hr::ok);
        EXPECT_EQ(bytes, 5u);
        EXPECT_EQ(ListNames(folder, names), hr::ok);
        EXPECT_EQ(names, std::vector<std::wstring>{L"f"});
        EXPECT_EQ(ListFileStates(folder, states), hr::ok);
        EXPECT_EQ(states.size(), 1u);
        EXPECT_TRUE(IsDirectory(folder) && CanMakeFilesIn(folder));
        EXPECT_TRUE(Failed(FileSize(folder, &bytes))) << "a folder has none";
        EXPECT_EQ(FreeSpace().AvailableBytes(folder, &bytes), hr::ok);
    }
    EXPECT_EQ(RemoveTree(store.Folder("folder") + L"/"), hr::ok);
    EXPECT_TRUE(store.List().empty());
}

TEST(FileSystem, WhatIsMadePrivateIsSoAndStays) {
    TempStore store;
    const std::wstring file = store.Folder("file"), folder = store.Folder("folder");
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(MakePrivateFile(file), hr::ok);
        ASSERT_EQ(MakePrivateFolder(folder), hr::ok);
        EXPECT_TRUE(test::IsForItsOwnerAlone(store.Path() / "file"));
        EXPECT_TRUE(test::IsForItsOwnerAlone(store.Path() / "folder"));
        EXPECT_EQ(ReplaceWholeFile(JoinPath(folder, L"kept"), "1"), hr::ok);
        store.WriteFile("file", "kept");
    }
    std::string text;
    EXPECT_EQ(ReadWholeFile(file, &text), hr::ok);
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(Failed(MakePrivateFile(folder))) << "a folder is no file";
    EXPECT_EQ(MakePrivateFolder(store.Folder("none/below")), hr::Code(0x80070003));
    std::vector<std::wstring> names;
    std::vector<FileState> states;
    ASSERT_EQ(ListFileStates(store.WidePath(), states), hr::ok);
    ASSERT_EQ(states.size(), 1u);
    EXPECT_EQ(states[0].name, "file");
    EXPECT_EQ(states[0].bytes, 4u);
    for (const std::wstring& bad : {std::wstring(), store.Folder("none"), file})
        EXPECT_TRUE(Failed(ListNames(bad, names)) && Failed(ListFileStates(bad, states)));
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

// The settings service as the store finds it: loaded from its component.
class SettingsTest : public testing::Test {
protected:
    void SetUp() override {
        SetPathToken(L"%ZELSettingsFile%", file_);
        ASSERT_EQ(OpenSettings(manager_.Receive()), TOB_OK);
    }
    CountedPtr<ISettingsKey> Key(const wchar_t* path = L"ZEL\\Settings\\FDR") {
        CountedPtr<ISettingsKey> key;
        EXPECT_EQ(manager_->OpenKey(path, key.Receive()), TOB_OK);
        return key;
    }
    void Write(const wchar_t* name, std::uint32_t value,
               const wchar_t* path = L"ZEL\\Settings\\FDR") {
        const auto key = Key(path);
        EXPECT_EQ(key->WriteNumber(name, value), TOB_OK);
        EXPECT_EQ(manager_->PutBack(key.Get()), TOB_OK);
    }
    std::optional<std::uint32_t> Read(const wchar_t* name,
                                      const wchar_t* path = L"ZEL\\Settings\\FDR") {
        std::uint32_t value = 0;
        const TobResult result = Key(path)->ReadNumber(name, &value);
        EXPECT_TRUE(Succeeded(result) || result == TOBERR_NOT_FOUND);
        return Succeeded(result) ? std::optional(value) : std::nullopt;
    }
    std::string Text() {
        std::string text;
        EXPECT_EQ(ReadWholeFile(file_, &text), hr::ok);
        return text;
    }

    TempStore folder_;
    const std::wstring file_ = folder_.Folder("settings.ini");
    CountedPtr<ISettingsManager> manager_;
};

TEST_F(SettingsTest, LiveInOneReadableFile) {
    EXPECT_EQ(Read(L"A"), std::nullopt);
    Write(L"A", 4294967295U);
    EXPECT_EQ(Read(L"A"), 4294967295U);
    EXPECT_EQ(Text(), "[ZEL\\Settings\\FDR]\nA=4294967295\n");
    EXPECT_EQ(folder_.List(), std::set<std::string>{"settings.ini"}) << "nothing else is left";
    folder_.WriteFile("settings.ini", "[other]\nB=1\n[ZEL\\Settings\\FDR]\nA=5\n");
    EXPECT_EQ(Read(L"A"), 5u) << "changes of others are seen";
    const auto early = Key();
    Write(L"A", 6);
    ASSERT_EQ(early->WriteNumber(L"C", 9), TOB_OK);
    ASSERT_EQ(manager_->PutBack(early.Get()), TOB_OK);
    EXPECT_EQ(Text(), "[ZEL\\Settings\\FDR]\nA=6\nC=9\n[other]\nB=1\n")
        << "only what was written is put back";

    for (const wchar_t* name : {L"A", L"C"}) {
        const auto key = Key();
        CountedPtr<ISettingsKey2> removing;
        ASSERT_EQ(key->QueryInterface(iidSettingsKey2, removing.ReceiveVoid()), TOB_OK);
        EXPECT_EQ(removing->RemoveNumber(name), TOB_OK);
        EXPECT_EQ(removing->RemoveNumber(name), TOBERR_NOT_FOUND);
        EXPECT_EQ(manager_->PutBack(key.Get()), TOB_OK);
    }
    EXPECT_EQ(Text(), "[other]\nB=1\n") << "without its last value a key goes too";
}

TEST_F(SettingsTest, NamesThatTheFileCannotHoldAreRefused) {
    CountedPtr<ISettingsKey> key;
    for (const wchar_t* name : {L"", L" a", L"a ", L"a=b", L"[a", L"a]", L"a\nb", L";a", L"#a"}) {
        EXPECT_EQ(manager_->OpenKey(name, key.Receive()), TOBERR_INVALID_ARG);
        EXPECT_EQ(Key()->WriteNumber(name, 1), TOBERR_INVALID_ARG);
    }
    const wchar_t* const odd = L"a.b c;#\\\u00E9";
    Write(odd, 7, odd);
    EXPECT_EQ(Read(odd, odd), 7u);
}

TEST_F(SettingsTest, WithoutAFileTheyLiveInMemory) {
    SetPathToken(L"%ZELSettingsFile%", L"");
    Write(L"A", 3);
    EXPECT_EQ(Read(L"A"), 3u);
    EXPECT_TRUE(folder_.List().empty());
    SetPathToken(L"%ZELSettingsFile%", file_);
    folder_.WriteFile("settings.ini", "");
    EXPECT_EQ(Read(L"A"), std::nullopt) << "an empty file is no broken one";
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
        {"[s]\nA=1 2\n", "line 2: "},
        {"[s]\nA=1\nA=2\n", "line 3: "},
    };
    for (const auto& row : rows) {
        folder_.WriteFile("settings.ini", row.text);
        test::RecordingReports reports;
        CountedPtr<ISettingsKey> key;
        EXPECT_EQ(manager_->OpenKey(L"K", key.Receive()), TOBERR_FAIL) << row.text;
        ASSERT_EQ(reports.Count(), 1u) << row.text;
        const auto details = reports.At(0).Details();
        EXPECT_EQ(details.front().second, TempStore::Utf8(folder_.Path() / "settings.ini"));
        EXPECT_EQ(details.back().second.rfind(row.line, 0), 0u) << details.back().second;
        EXPECT_EQ(Text(), row.text);
    }
}

TEST(Services, TokensComeFromTheHostAndElseTheEnvironment) {
    std::wstring value;
    test::SetEnvironment("ZEL_TEST_TOKEN", "/from/environment");
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
    EXPECT_EQ(LoadInstalledObject(test::hostLibrary, unknown, unknown, &out),
              TOBERR_PROC_NOT_FOUND);
    EXPECT_EQ(out, nullptr);
}

TEST(Services, JobThatFailsTellsSo) {
    CountedPtr<IJobManager> manager;
    ASSERT_EQ(OpenJobManager(manager.Receive()), TOB_OK);
    CountedPtr<IJobRegistry> registry;
    ASSERT_EQ(manager->QueryInterface(iidJobRegistry, registry.ReceiveVoid()), TOB_OK);
    CountedPtr<IJob> job;
    ASSERT_EQ(manager->GetJob(storeJobId, job.Receive()), hr::ok);
    const auto fails = [](void*, HANDLE) { return hr::fail; };
    ASSERT_EQ(registry->RegisterJob(storeJobId, nullptr, fails, nullptr), hr::ok);
    ASSERT_EQ(job->Start(0), hr::ok);
    std::int32_t status = jobStatus::running;
    while (status != jobStatus::failed && status != jobStatus::ended)
        ASSERT_EQ(job->GetStatus(&status), hr::ok);
    EXPECT_EQ(status, jobStatus::failed);
}

}  // namespace
}  // namespace wm
