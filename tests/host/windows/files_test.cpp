#include <windows.h>
// The other needs it first.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>

#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/workerthread.h"
#include "support/storefixture.h"

// What only this system's files do: they are held against others, and names may be such that the
// system reads something into them.

namespace wm {
namespace {

using namespace ZEL;
using test::TempStore;

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A file that is open, as another program has it, until the object goes.
class Held {
public:
    Held(const std::wstring& path, DWORD share, DWORD creation = OPEN_EXISTING)
        : handle_(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, creation, 0, nullptr)) {
        EXPECT_NE(handle_, INVALID_HANDLE_VALUE) << ::GetLastError();
    }
    ~Held() { ::CloseHandle(handle_); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

private:
    ::HANDLE handle_;
};

TEST(WindowsFiles, HeldOnesAreNeitherReplacedNorRemovedAndKeepWhatTheyHave) {
    const TempStore store;
    const std::wstring file = store.Folder("f");
    std::string text;
    ASSERT_EQ(ReplaceWholeFile(file, "kept"), hr::ok);
    {
        const Held held(file, 0);
        EXPECT_EQ(ReadWholeFile(file, &text), hr::sharingViolation);
        EXPECT_TRUE(IsLockedByAnotherProcess(file));
        EXPECT_TRUE(Failed(ReplaceWholeFile(file, "new")));
        EXPECT_EQ(RemoveTree(store.WidePath()), hr::sharingViolation);
        std::uint64_t bytes = 0;
        EXPECT_EQ(FileSize(file, &bytes), hr::ok);
        EXPECT_EQ(bytes, 4u);
    }
    EXPECT_FALSE(IsLockedByAnotherProcess(file));
    EXPECT_EQ(store.List(), std::set<std::string>{"f"}) << "what was to replace it is gone";
    EXPECT_EQ(ReadWholeFile(file, &text), hr::ok);
    EXPECT_EQ(text, "kept");
    {
        const Held shared(file, shareAll);
        EXPECT_EQ(ReadWholeFile(file, &text), hr::ok);
        EXPECT_FALSE(IsLockedByAnotherProcess(file) && Failed(MakePrivateFile(file)));
    }
    EXPECT_EQ(ReplaceWholeFile(file, "new"), hr::ok);
}

// The other program lets go once it sees that somebody is about to replace the file.
TEST(WindowsFiles, ReplacingWaitsForAReaderThatIsThroughSoon) {
    const TempStore store;
    const std::wstring file = store.Folder("f");
    for (const DWORD share : {DWORD(0), shareAll}) {
        ASSERT_EQ(ReplaceWholeFile(file, "former"), hr::ok);
        WorkerThread reader;
        auto held = std::make_unique<Held>(file, share);
        std::atomic<bool> isOver{false};
        ASSERT_TRUE(reader.Start([&] {
            while (store.List().size() < 2 && !isOver)
                ::Sleep(1);
            held.reset();
            return hr::ok;
        }));
        EXPECT_EQ(ReplaceWholeFile(file, "new"), hr::ok) << share;
        isOver = true;
        reader.Wait();
    }
    std::string text;
    EXPECT_EQ(ReadWholeFile(file, &text), hr::ok);
    EXPECT_EQ(text, "new");
}

// Other systems' programs make such names here, and whoever wants to be in the way.
TEST(WindowsFiles, NothingIsReadIntoNamesThatFoldersHold) {
    const TempStore store;
    const std::wstring folder = store.Folder("20261112"), verbatim = L"\\\\?\\" + folder;
    ASSERT_EQ(MakePrivateFolder(folder), hr::ok);
    ASSERT_NE(::CreateDirectoryW((verbatim + L"\\sub.").c_str(), nullptr), 0);
    for (const wchar_t* name : {L"a", L"a.", L"a..", L"b ", L"nul", L"com1.txt", L"sub.\\c."})
        const Held made(verbatim + L"\\" + name, shareAll, CREATE_NEW);
    ASSERT_EQ(ReplaceWholeFile(verbatim + L"\\a.", "12345"), hr::ok);
    std::uint64_t bytes = 0;
    for (const std::wstring& path :
         {folder, folder + L"\\", folder + L"/.", verbatim, verbatim + L"\\"}) {
        EXPECT_EQ(FolderSize(path, &bytes), hr::ok);
        EXPECT_EQ(bytes, 5u);
        EXPECT_EQ(CountFiles(path, L""), 6u);
        EXPECT_TRUE(CanReadFiles(path, L""));
        std::vector<FileState> states;
        EXPECT_EQ(ListFileStates(path, states), hr::ok);
        ASSERT_EQ(states.size(), 6u);
        EXPECT_EQ(states[1].bytes, 5u) << states[1].name;
    }
    EXPECT_EQ(RemoveTree(folder), hr::ok);
    EXPECT_TRUE(store.List().empty());
}

// scripts/test makes the drive.
TEST(WindowsFiles, RootOfAnEmptyVolumeIsAFolder) {
    WIN32_FIND_DATAW found{};
    const ::HANDLE listing = ::FindFirstFileW(L"D:\\*", &found);
    if (!IsDirectory(L"D:\\") || listing != INVALID_HANDLE_VALUE) {
        ::FindClose(listing);
        GTEST_SKIP() << "an empty drive D is made by scripts/test";
    }
    for (const wchar_t* root : {L"D:\\", L"D:/", L"D:\\.", L"\\\\?\\D:\\"}) {
        std::vector<std::wstring> names;
        std::uint64_t bytes = 1;
        EXPECT_EQ(ListNames(root, names), hr::ok) << Bits(ListNames(root, names));
        EXPECT_TRUE(names.empty());
        EXPECT_EQ(FolderSize(root, &bytes), hr::ok);
        EXPECT_EQ(bytes, 0u);
        EXPECT_EQ(FreeSpace().AvailableBytes(root, &bytes), hr::ok);
        EXPECT_GT(bytes, 0u);
    }
    std::vector<std::wstring> names;
    EXPECT_EQ(ListNames(L"D:\\none", names), hr::Code(0x80070003));
    EXPECT_EQ(ListNames(L"Q:\\", names), hr::Code(0x80070003));
}

// A listing would tell what was when the file was closed last.
TEST(WindowsFiles, SizesOfFilesBeingWrittenAreTheirOwn) {
    const TempStore store;
    std::ofstream file(store.Path() / "f", std::ios::binary);
    for (std::uint64_t bytes = 1; bytes < 4; ++bytes) {
        file << 'x' << std::flush;
        std::vector<FileState> states;
        ASSERT_EQ(ListFileStates(store.WidePath(), states), hr::ok);
        ASSERT_EQ(states.size(), 1u);
        EXPECT_EQ(states[0].bytes, bytes);
    }
}

}  // namespace
}  // namespace wm
