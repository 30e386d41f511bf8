#include <gtest/gtest.h>

#include "common/textbridge.h"
#include "support/client.h"
#include "zelstore/keymaker.h"

// Documents that were made to hurt. None may crash, hang or leak; each gives a key or a clear code.

namespace ZEL {
namespace {

const std::string good = R"("artifacts":{"target":{"object_type":"file","path":{"value":["x"]}}},)"
                         R"("action":["open"],"begin_time":{"value":"T"})";

std::string Repeat(const std::string& text, std::size_t count) {
    std::string out;
    out.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        out += text;
    return out;
}

std::string Nested(const std::string& open, const std::string& close, std::size_t depth) {
    return Repeat(open, depth) + Repeat(close, depth);
}

std::string WithPath(const std::string& json) {
    return R"({"artifacts":{"target":{"object_type":"file","path":{"value":[")" + json +
           R"("]}}},"action":["open"],"begin_time":{"value":"T"}})";
}

TEST(HostileRecords, GiveACodeOrAKey) {
    const std::string tenMegabytes(10U << 20, 'x');
    const struct {
        const char* what;
        std::string text;
        HRESULT result;
    } rows[] = {
        {"empty", "", hr::unexpected},
        {"blank", "  \t ", hr::unexpected},
        {"byte order mark", "\xEF\xBB\xBF{}", hr::unexpected},
        {"garbage", "}{", hr::unexpected},
        {"cut off", "{" + good, hr::unexpected},
        {"text behind", "{" + good + "} x", hr::unexpected},
        {"nested arrays", Nested("[", "]", 100000), hr::unexpected},
        {"nested objects", Nested("{\"a\":", "", 100000), hr::unexpected},
        {"nested within bounds", "{" + good + ",\"x\":" + Nested("[", "]", 100) + "}", hr::ok},
        {"only a number", "1e999", hr::invalidArgument},
        {"only null", "null", hr::invalidArgument},
        {"huge sequence", "{" + good + ",\"seq_num\":1e300}", hr::ok},
        {"negative sequence", "{" + good + ",\"seq_num\":-1}", hr::ok},
        {"sequence beyond 64 bits", "{" + good + ",\"seq_num\":99999999999999999999999}", hr::ok},
        {"sequence as text", "{" + good + ",\"seq_num\":\"1\"}", hr::unexpected},
        {"event_count out of range", "{" + good + ",\"event_count\":-1e40}", hr::ok},
        {"artifacts as array", R"({"artifacts":[],"action":["open"]})", hr::unexpected},
        {"target as text",
         R"({"artifacts":{"target":"x"},"action":["open"],"begin_time":{"value":"T"}})", hr::ok},
        {"target null",
         R"({"artifacts":{"target":null},"action":["open"],"begin_time":{"value":"T"}})", hr::ok},
        {"action as text", "{\"action\":\"open\"}", hr::unexpected},
        {"action of numbers", "{\"action\":[1]}", hr::unexpected},
        {"begin_time as text", R"({"begin_time":"T","action":["open"],"artifacts":{"target":{}}})",
         hr::ok},
        {"path of numbers",
         R"({"artifacts":{"target":{"object_type":"file","path":{"value":[1]}}}})", hr::unexpected},
        {"unknown object type", R"({"artifacts":{"target":{"object_type":"File"}}})",
         hr::unexpected},
        {"low surrogate alone", WithPath("a\\uDC00b"), hr::unexpected},
        {"high surrogate alone", WithPath("a\\uD800b"), hr::unexpected},
        {"surrogate pair", WithPath("a\\uD83D\\uDE00b"), hr::ok},
        {"NUL in a value", WithPath("a\\u0000b"), hr::ok},
        {"malformed byte", WithPath("a\xFF"), hr::unexpected},
        {"overlong slash", WithPath("a\xC0\xAF"), hr::unexpected},
        {"beyond Unicode", WithPath("a\xF4\x90\x80\x80"), hr::unexpected},
        {"control character", WithPath("a\nb"), hr::unexpected},
        {"markup of keys", WithPath("<begin_time>|A|B|H>"), hr::ok},
        {"duplicate keys", "{" + good + "," + good + "}", hr::ok},
        {"20,000 duplicate keys", "{" + Repeat("\"x\":1,", 20000) + good + "}", hr::ok},
        {"10 MB value", WithPath(tenMegabytes), hr::ok},
        {"10 MB of values",
         R"({"action":[)" + Repeat("\"open\",", 1500000) + "\"open\"]," +
             good.substr(0, good.find(",\"action\"")) + R"(,"begin_time":{"value":"T"}})",
         hr::ok},
        {"10 MB name", "{\"" + tenMegabytes + "\":1," + good + "}", hr::ok},
        {"comment", "{" + good + "/* x */}", hr::ok},
    };
    for (const auto& row : rows) {
        std::string key;
        EXPECT_EQ(MakeEventKeyUtf8(row.text, &key), row.result) << row.what;
        EXPECT_TRUE(wm::IsUtf8(key)) << row.what;
    }
}

TEST(HostileRecords, WideTextIsCheckedToo) {
    const std::wstring texts[] = {std::wstring(1, static_cast<wchar_t>(0xD800)),
                                  std::wstring(1, static_cast<wchar_t>(0x7FFFFFFF)), L"\0"};
    for (const std::wstring& text : texts) {
        std::wstring key;
        EXPECT_EQ(MakeEventKey(text, &key), hr::unexpected);
    }
}

}  // namespace
}  // namespace ZEL
