#include <gtest/gtest.h>

#include "common/textbridge.h"
#include "support/client.h"
#include "zelstore/keymaker.h"

// Documents that were made to hurt. None may crash, hang or leak; each gives a key or a clear code.

namespace ZEL {
namespace {

const std::string target = R"("artifacts":{"target":{"object_type":"file"}})";
const std::string action = R"("action":["open"])";
const std::string time = R"("begin_time":{"value":"T"})";
const std::string good = target + "," + action + "," + time;

std::string Repeat(const std::string& text, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i)
        out += text;
    return out;
}

std::string WithTarget(const std::string& json) {
    return R"({"artifacts":{"target":)" + json + "}," + action + "," + time + "}";
}
std::string WithPath(const std::string& json) {
    return WithTarget(R"({"object_type":"file","path":{"value":[")" + json + "\"]}}");
}

TEST(HostileRecords, GiveACodeOrAKey) {
    const std::string tenMegabytes(10U << 20, 'x');
    const struct {
        const char* what;
        std::string text;
        HRESULT result;
    } rows[] = {
        {"empty", "", hr::unexpected},
        {"byte order mark", "\xEF\xBB\xBF{}", hr::unexpected},
        {"cut off", "{" + good, hr::unexpected},
        {"text behind", "{" + good + "} x", hr::unexpected},
        {"comment", "{" + good + "/* x */}", hr::ok},
        {"nested arrays", Repeat("[", 100000) + Repeat("]", 100000), hr::unexpected},
        {"nested objects", Repeat("{\"a\":", 100000), hr::unexpected},
        {"nested within bounds", "{" + good + ",\"x\":" + Repeat("[", 100) + Repeat("]", 100) + "}",
         hr::ok},
        {"only a number", "1e999", hr::invalidArgument},
        {"only null", "null", hr::invalidArgument},
        {"no time", "{" + target + "," + action + "}", hr::invalidArgument},
        {"no target", "{" + time + "," + action + "}", hr::fail},
        {"no action", "{" + time + "," + target + "}", hr::fail},
        {"unknown action", "{" + time + "," + target + R"(,"action":["fly"]})", hr::unexpected},
        {"unknown object type", WithTarget(R"({"object_type":"File"})"), hr::unexpected},
        {"huge sequence", "{" + good + ",\"seq_num\":1e300}", hr::ok},
        {"sequence beyond 64 bits", "{" + good + ",\"seq_num\":99999999999999999999999}", hr::ok},
        {"sequence as text", "{" + good + ",\"seq_num\":\"1\"}", hr::unexpected},
        {"event_count out of range", "{" + good + ",\"event_count\":-1e40}", hr::ok},
        {"artifacts as array", R"({"artifacts":[],"action":["open"]})", hr::unexpected},
        {"target as text", WithTarget("\"x\""), hr::ok},
        {"target null", WithTarget("null"), hr::ok},
        {"action as text", "{\"action\":\"open\"}", hr::unexpected},
        {"action of numbers", "{\"action\":[1]}", hr::unexpected},
        {"begin_time as text", "{" + target + "," + action + R"(,"begin_time":"T"})", hr::ok},
        {"path of numbers", WithTarget(R"({"object_type":"file","path":{"value":[1]}})"),
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
        {"20,000 duplicate keys", "{" + Repeat("\"x\":1,", 20000) + good + "," + good + "}",
         hr::ok},
        {"10 MB value", WithPath(tenMegabytes), hr::ok},
        {"10 MB of actions",
         "{" + target + "," + time + ",\"action\":[" + Repeat("\"open\",", 1500000) + "\"open\"]}",
         hr::ok},
        {"10 MB name", "{\"" + tenMegabytes + "\":1," + good + "}", hr::ok},
    };
    EventKeyMaker maker;
    for (const auto& row : rows) {
        std::string key;
        EXPECT_EQ(maker.Make(row.text, &key), row.result) << row.what;
        EXPECT_TRUE(wm::IsUtf8(key)) << row.what;
    }
}

TEST(HostileRecords, WideTextIsCheckedToo) {
    for (const int character : {0xD800, 0x7FFFFFFF}) {
        const std::wstring text(1, static_cast<wchar_t>(character));
        const auto value = CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(text.c_str()));
        IStringValue* key = nullptr;
        EXPECT_EQ(EventKeyMaker().Make(*value, &key), hr::unexpected);
    }
}

}  // namespace
}  // namespace ZEL
