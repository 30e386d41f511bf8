#include "zelstore/database/layout.h"

#include "common/filesystem.h"
#include "databasefixture.h"

namespace ZEL {
namespace {

TEST(Layout, DateAndNumberComeFromTheFoldersName) {
    const struct {
        const wchar_t* name;
        const wchar_t* date;
        std::uint32_t number;
    } rows[] = {
        {L"20261112", L"20261112", 0},       {L"20261112001", L"20261112", 1},
        {L"20261112998", L"20261112", 998},  {L"20261112999", L"20261112", 999},
        {L"202611120042x", L"20261112", 42}, {L"20261112x1", L"20261112", 0},
        {L"20261112-1", L"20261112", 0},     {L"backup", L"backup", 0},
        {L"lost+found", L"lost+fou", 0},     {L"2026111299999999999999", L"20261112", 0xFFFFFFFF},
    };
    for (const auto& row : rows) {
        const std::wstring path = std::wstring(L"/any/store/") + row.name;
        EXPECT_EQ(DateFromPath(path), row.date);
        EXPECT_EQ(NumberFromPath(path), row.number);
        EXPECT_EQ(StoreOfPath(path), L"/any/store/");
    }
    EXPECT_EQ(FolderPath(L"/s", L"20261112"), wm::JoinPath(L"/s", L"20261112"));
    EXPECT_EQ(FolderPath(L"/s", L"20261112", 7), wm::JoinPath(L"/s", L"20261112007"));
    EXPECT_EQ(FolderPath(L"/s", L"20261112", 1501), wm::JoinPath(L"/s", L"202611121501"));
}

TEST(Layout, PathsAreInOrderOfUtf16) {
    EXPECT_TRUE(PathLess()(L"\U0001F600", L"\uFB00"));
    EXPECT_TRUE(PathLess()(L"20261112", L"20261112001"));
}

TEST(Layout, RoomIsTwiceTheBatchAndWhatTheLibraryNeedsBeside) {
    constexpr std::uint64_t margin = 64ULL << 20;
    const struct {
        std::uint64_t available, batch;
        bool hasRoom;
    } rows[] = {{margin, 0, true},
                {margin - 1, 0, false},
                {margin + 200, 100, true},
                {margin + 199, 100, false},
                {~0ULL, 1ULL << 62, true}};
    for (const auto& row : rows) {
        const test::FakeFreeSpace volume(row.available);
        EXPECT_EQ(HasRoomFor(L"/any", row.batch), row.hasRoom) << row.available;
    }
}

TEST(Layout, SizeIsCountedAnewOnlyWhenItsBudgetIsSpent) {
    test::TempStore store;
    const struct {
        int tables;
        std::uint64_t bytes, budget;
    } rows[] = {{0, 0, 88746}, {1, 1572864, 87722}, {79, 124256256, 7850}, {200, 314572800, 0}};
    for (const auto& row : rows) {
        const std::string name = "2026" + std::to_string(row.tables);
        store.AddTables(name, row.tables);
        LevelDbInstanceProxy proxy(store.Folder(name));
        EXPECT_EQ(EstimatedSize(proxy), row.bytes);
        EXPECT_EQ(proxy.RecountBudget(), row.budget);
    }
    LevelDbInstanceProxy proxy(store.Folder("202679"));
    ASSERT_EQ(proxy.Write(test::Rows(7849)), hr::ok);
    EXPECT_EQ(EstimatedSize(proxy), 79 * bytesPerTableFile + 7849 * bytesPerRecord);
    EXPECT_EQ(proxy.RecordsSinceCount(), 7849u) << "below the limit, so nothing is counted";
    ASSERT_EQ(proxy.Write(test::Rows(1)), hr::ok);
    EXPECT_GE(EstimatedSize(proxy), 79 * bytesPerTableFile);
    EXPECT_EQ(proxy.RecordsSinceCount(), 0u) << "the budget is used up";
}

}  // namespace
}  // namespace ZEL
