#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "common/result.h"
#include "common/textbridge.h"
#include "common/valuetext.h"

namespace wm {
namespace {

TEST(TextBridge, RefusesWhatIsNotUnicode) {
    const char* const bad[] = {
        "\x80",        "a\xFF",        "\xC0\xAF",         "\xC1\xBF",
        "\xC3",        "\xE0\x80\xAF", "\xE2\x82",         "\xED\xA0\x80",
        "\xF5",        "\xC3(",        "\xF0\x80\x80\xAF", "\xF4\x90\x80\x80",
        "\xF0\x9F\x98"};
    std::wstring wide;
    for (const char* bytes : bad) {
        EXPECT_FALSE(ToWide(bytes, wide)) << bytes;
        EXPECT_FALSE(IsUtf8(bytes)) << bytes;
    }
    std::string utf8;
    std::vector<std::uint32_t> units = {0xD800, 0xDFFF};
    if (sizeof(wchar_t) > 2)  // else larger ones come in pairs
        units.insert(units.end(), {0x110000, 0x7FFFFFFF});
    for (const std::uint32_t unit : units)
        EXPECT_FALSE(ToUtf8(std::wstring(1, static_cast<wchar_t>(unit)), utf8)) << unit;
    EXPECT_EQ(ToUtf8Lossy(std::wstring(1, static_cast<wchar_t>(0xD800)) + L"a"),
              "\xEF\xBF\xBD"
              "a");
}

TEST(TextBridge, RoundTripsEveryLength) {
    const std::string texts[] = {"",
                                 "plain",
                                 std::string("n\0l", 3),
                                 "\xC2\x80\xDF\xBF",
                                 "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF",
                                 "a\xF0\x90\x80\x80z\xF4\x8F\xBF\xBF"};
    std::wstring wide = L"what was there before";
    std::string back = "likewise";
    for (const std::string& text : texts) {
        ASSERT_TRUE(ToWide(text, wide));
        ASSERT_TRUE(ToUtf8(wide, back));
        EXPECT_EQ(back, text);
        EXPECT_TRUE(IsUtf8(text));
    }
    // Every place in and behind the blocks in which runs of ASCII are taken.
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string text =
            std::string(length, 'a') + "\xC3\xA9" + std::string(40 - length, 'b');
        ASSERT_TRUE(ToWide(text, wide));
        EXPECT_EQ(wide, std::wstring(length, L'a') + L'\u00E9' + std::wstring(40 - length, L'b'));
        ASSERT_TRUE(ToUtf8(wide, back));
        EXPECT_EQ(back, text);
        EXPECT_FALSE(IsUtf8(std::string(length, 'a') + "\xFF" + std::string(40, 'b')));
    }
}

TEST(StringValue, GivesUtf8AsItCameAndWideTextWhenAsked) {
    const auto value = ToValue(std::string_view("b\xC3\xA9z\0q", 6));
    ASSERT_TRUE(value);
    std::string buffer;
    EXPECT_EQ(Utf8Of(*value, buffer), "b\xC3\xA9z");
    EXPECT_EQ(KeptUtf8(*value)->data()[4], '\0');
    std::vector<std::thread> askers;
    for (int i = 0; i < 8; ++i)
        askers.emplace_back([&] {
            EXPECT_EQ(value->GetLength(0), 3U);
            EXPECT_STREQ(value->GetText(), L"b\u00E9z");
        });
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(KeptUtf8(*ToValue("")), "");
    EXPECT_FALSE(ToValue(std::string_view("a\0\xFF", 3)));

    const auto wide = ZEL::CountedPtr<ZEL::IStringValue>::Adopt(CreateStringValue(L"b\u00E9z"));
    EXPECT_FALSE(KeptUtf8(*wide));
    EXPECT_EQ(Utf8Of(*wide, buffer), "b\xC3\xA9z");
    EXPECT_STREQ(wide->GetText(), L"b\u00E9z");
}

TEST(Results, ConvertByTheCallersTable) {
    using ZEL::ResultTable;
    const struct {
        std::uint32_t code;
        std::uint32_t full, settings, loader;
    } rows[] = {
        {0x00010000, 0, 0, 0},
        {0x80010203, 0x80070057, 0x80070057, 0x80070057},
        {0x00010001, 1, 1, 1},
        {0x8000020F, 0x80070570, 0x80070570, 0x80004005},
        {0x8000020D, 0x80070020, 0x80070020, 0x80004005},
        {0x80000213, 0x80071A90, 0x80004005, 0x80004005},
        {0x80000205, 0x8000FFFF, 0x80004005, 0x8000FFFF},
        {0x81234567, 0x80004005, 0x80004005, 0x80004005},
        {0x00000005, 0, 0, 0},
    };
    for (const auto& row : rows) {
        const ZEL::TobResult code{row.code};
        EXPECT_EQ(Bits(ToHResult(code)), row.full) << std::hex << row.code;
        EXPECT_EQ(Bits(ToHResult(code, ResultTable::settings)), row.settings) << row.code;
        EXPECT_EQ(Bits(ToHResult(code, ResultTable::loader)), row.loader) << row.code;
    }
}

}  // namespace
}  // namespace wm
