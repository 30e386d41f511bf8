#include "agent/web/websessions.h"

#include <gtest/gtest.h>

#include <set>

#include "agent/web/htmltext.h"

namespace zel {

namespace {

using std::chrono::hours;
using std::chrono::minutes;

Peer PeerWithUid(uid_t uid) {
    Peer peer;
    peer.isKnown = true;
    peer.uid = uid;
    return peer;
}

// What the clock and the numbers end: no browser waits that long.
TEST(WebSessionsTest, TokensAndSessionsEnd) {
    WebSessions sessions;
    const auto start = WebSessions::Clock::now();
    const std::string token = sessions.MakeToken(PeerWithUid(7), start);
    EXPECT_EQ(token.size(), 64U);
    EXPECT_FALSE(sessions.Open("", start));
    EXPECT_FALSE(sessions.Open(token, start + minutes(6)));
    const auto cookie =
        sessions.Open(sessions.MakeToken(PeerWithUid(7), start), start + minutes(4));
    ASSERT_TRUE(cookie);
    EXPECT_FALSE(sessions.Find("", start));
    EXPECT_EQ(sessions.Find(*cookie, start + hours(7))->uid, 7U);
    EXPECT_TRUE(sessions.Find(*cookie, start + hours(14)));  // it was used
    EXPECT_FALSE(sessions.Find(*cookie, start + hours(23)));

    std::set<std::string> tokens;
    for (int i = 0; i < 17; ++i)
        tokens.insert(sessions.MakeToken(PeerWithUid(1), start));
    EXPECT_EQ(tokens.size(), 17U);
    std::size_t good = 0;
    for (const std::string& one : tokens)
        good += sessions.Open(one, start) ? 1 : 0;
    EXPECT_EQ(good, 16U);
    const auto first = sessions.Open(sessions.MakeToken(PeerWithUid(1), start), start);
    for (int i = 0; i < 32; ++i)
        sessions.Open(sessions.MakeToken(PeerWithUid(2), start), start);
    EXPECT_FALSE(sessions.Find(*first, start));
}

TEST(HtmlTextTest, NothingIsMarkup) {
    const std::pair<const char*, const char*> cases[] = {
        {"<a b='c' d=\"e\">&", "&lt;a b=&#39;c&#39; d=&quot;e&quot;&gt;&amp;"},
        {"a\x01\x7F\n\tb", "a&#9217;&#9249;\n\tb"},
        {"x\u202Egpj\u2066\u200F.\u2028\u200B\u2030",
         "x[U+202E]gpj[U+2066][U+200F].[U+2028][U+200B]\u2030"},
        {"\xE2\x80", "\xE2\x80"},
    };
    for (const auto& [text, html] : cases)
        EXPECT_EQ(HtmlText(text), html);
    EXPECT_EQ(HtmlOfJson(R"({"a":[1,{"<b>":{}}],"c":[]})"),
              "{\n  &quot;a&quot;: [\n    1,\n    {\n      &quot;&lt;b&gt;&quot;: {}\n    }\n  ],\n"
              "  &quot;c&quot;: []\n}");
    EXPECT_EQ(HtmlOfJson("no <json>"), "no &lt;json&gt;");
}

}  // namespace

}  // namespace zel
