#include "zelstore/database/layout.h"

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
    EXPECT_EQ(FolderPath(L"/s", L"20261112"), L"/s/20261112");
    EXPECT_EQ(FolderPath(L"/s", L"20261112", 7), L"/s/20261112007");
    EXPECT_EQ(FolderPath(L"/s", L"20261112", 1501), L"/s/202611121501");
}

TEST(Layout, TodayIsOfTheClock) {
    test::FakeClock clock;
    clock.SetDate(987, 6, 5);
    std::wstring date;
    EXPECT_EQ(FormatToday(&date), hr::ok);
    EXPECT_EQ(date, L"09870605");
}

TEST(Layout, CatalogOrderIsByCodeUnits) {
    const std::wstring inOrder[] = {
        L"20261111999", L"20261112", L"20261112001",           L"20261112998",
        L"20261112999", L"20261113", std::wstring(1, 0x1F600), std::wstring(1, 0xE000)};
    for (std::size_t i = 0; i + 1 < std::size(inOrder); ++i) {
        EXPECT_TRUE(PathLess()(inOrder[i], inOrder[i + 1])) << i;
        EXPECT_FALSE(PathLess()(inOrder[i + 1], inOrder[i])) << i;
    }
}

TEST(Layout, SizeIsEstimatedFromTablesAndRecords) {
    test::TempStore store;
    const struct {
        int tables;
        std::uint64_t bytes, budget;
    } rows[] = {{0, 0, 88746},
                {1, 1572864, 87722},
                {79, 124256256, 7850},
                {80, 125829120, 0},
                {200, 314572800, 0}};
    for (const auto& row : rows) {
        const std::string name = "2026" + std::to_string(row.tables);
        store.AddTables(name, row.tables);
        LevelDbInstanceProxy proxy(store.Folder(name));
        EXPECT_EQ(proxy.EstimatedBytes(), row.bytes);
        EXPECT_EQ(proxy.RecountBudget(), row.budget);
        EXPECT_EQ(EstimatedSize(proxy), row.bytes);
    }
    LevelDbInstanceProxy proxy(store.Folder("202679"));
    ASSERT_EQ(proxy.Write(test::Rows(2000)), hr::ok);
    EXPECT_EQ(EstimatedSize(proxy), 125792256u) << "below the limit, so nothing is counted";
    ASSERT_EQ(proxy.Write(test::Rows(5850)), hr::ok);
    EXPECT_EQ(proxy.RecordsSinceCount(), 7850u);
    EXPECT_GE(EstimatedSize(proxy), 79 * bytesPerTableFile);
    EXPECT_EQ(proxy.RecordsSinceCount(), 0u) << "the budget is used up";
}

}  // namespace
}  // namespace ZEL
