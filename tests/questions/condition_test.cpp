#include "questions/condition.h"

#include <gmock/gmock.h>

#include "common/asciicase.h"

namespace zel {
namespace {

constexpr const char* eventOfTest =
    R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["C:\\Win\\Cmd.exe"]},)"
    R"("pid":{"value":[4242]},"cmd_line":{"value":["cmd -Enc \"x y\" \u00c4\/z"]}},)"
    R"("target":{"object_type":"network","src_ip":{"value":["::ffff:10.1.2.3"]},)"
    R"("dst_ip":{"value":["fe80::1%eth0"]},"dst_port":{"value":["443"]},)"
    R"("protocol_id":{"value":[6]}}},"action":["terminate","connect"],)"
    R"("begin_time":{"value":"2026-11-12T10:00:00.500Z"},"unmapped":{"User":"-"},)"
    R"("source":{"channel":"Sysmon","format":"evtx","event_id":3}})";

TimeWords TimesOfTest(std::string_view text) {
    if (text == "day")
        return {"2026-11-12T00:00:00.000Z", "2026-11-12T23:59:59.999Z", "", 0};
    return {"", "", "no time", 1};
}

TEST(EventCondition, IsTestedByTheTypeOfItsColumn) {
    const std::pair<const char*, bool> cases[] = {
        // Letter case never matters, unless an expression says so.
        {"actor_path = c:\\win\\CMD.EXE", true},
        {"actor_path=C:\\Win\\Cmd", false},
        {"actor_path != c:\\win\\cmd.exe", false},
        {"actor_path starts c:\\WIN", true},
        {"actor_path ends \\cmd.EXE", true},
        {"actor_path contains win\\c", true},
        {"actor_path contains nowhere", false},
        {"actor_path ~ ^c:.*(cmd|sh)\\.exe$", true},
        {"actor_path ~ (?-i)cmd", false},
        {"actor_path > b", true},
        {"actor_path < b", false},
        // The rest of the text is the value; quotes around all of it go.
        {"actor_cmd_line contains -enc \"x", true},
        {"actor_cmd_line contains \"-enc \"", true},
        {"actor_cmd_line ends Ä/z", true},
        {"actor_cmd_line contains \xC3\x84", true},
        // Numbers are compared as such, also where the event has a text.
        {"actor_pid = 4242", true},
        {"actor_pid = 0x1092", true},
        {"actor_pid < 5000", true},
        {"actor_pid >= 4243", false},
        {"dst_port <= 443", true},
        {"dst_port contains 44", true},
        {"protocol = tcp", true},
        // Of several values the first in byte order counts, as in the key.
        {"action = connect", true},
        {"action = terminate", false},
        {"source = Sysmon 3", true},
        // A value that is missing, or not known, fits != alone.
        {"user != ann", true},
        {"user = -", false},
        {"user ~ .*", false},
        {"target_pid != 5", true},
        {"target_pid < 5", false},
        // Networks; IPv4 is found in its other form as well.
        {"src_ip in 10.0.0.0/8", true},
        {"src_ip in 10.1.2.0/23", true},
        {"src_ip in 10.1.4.0/22", false},
        {"src_ip in 10.1.2.3", true},
        {"src_ip in ::ffff:10.0.0.0/104", true},
        {"src_ip in ::/0", true},
        {"dst_ip in fe80::/10", true},
        {"dst_ip in 10.0.0.0/8", false},
        {"dst_ip in 0.0.0.0/0", false},
        // A day is all its moments.
        {"time = day", true},
        {"time != day", false},
        {"time > day", false},
        {"time >= day", true},
        {"time < day", false},
        {"time starts 2026-11-12T10", true},
        // The event's text: as people write, as JSON does, and as some writers of JSON do.
        {"event contains c:\\win", true},
        {"event contains c:\\\\win", true},
        {"event contains enc \"X Y\"", true},
        {"event contains Ä/z", true},
        {"event contains nowhere", false},
    };
    for (const auto& [text, fits] : cases) {
        ConditionProblem problem;
        const auto condition = EventCondition::Parse(text, TimesOfTest, &problem);
        ASSERT_TRUE(condition) << text << ": " << problem.what;
        const auto answer = EventConditions(std::vector{*condition}).Test(eventOfTest);
        EXPECT_EQ(EventCondition::Parse(condition->Text(), TimesOfTest, &problem)->Value(),
                  condition->Value());
        EXPECT_EQ(answer, fits ? EventConditions::Answer::yes : EventConditions::Answer::no)
            << text;
    }
}

TEST(EventCondition, ThatCantBeAskedIsToldWithItsPlace) {
    const std::tuple<const char*, const char*, std::size_t> cases[] = {
        {"", "a column is expected", 0},
        {"  aktor_path = x", "unknown column \"aktor_path\"", 2},
        {"actor_path like x", "unknown operator \"like\"", 11},
        {"actor_path", "unknown operator \"\"", 10},
        {"actor_path =  ", "a value is expected", 14},
        {"key = p", "--key", 6},
        {"actor_pid = x", "a number is expected", 12},
        {"actor_pid = tcp", "a number is expected", 12},
        {"actor_path in 10.0.0.0/8", "only of src_ip and dst_ip", 14},
        {"src_ip in 10.0.0/8", "a network such as", 10},
        {"src_ip in 10.0.0.0/33", "0 to 32", 19},
        {"src_ip in ::/x", "0 to 128", 13},
        {"actor_path ~ a(b", "missing )", 13},
        {"time = never", "no time", 8},
        {"user = \xFF", "not UTF-8", 7},
    };
    for (const auto& [text, what, at] : cases) {
        ConditionProblem problem;
        EXPECT_FALSE(EventCondition::Parse(text, TimesOfTest, &problem)) << text;
        EXPECT_THAT(problem.what, testing::HasSubstr(what)) << text;
        EXPECT_EQ(problem.at, at) << text;
    }
    ConditionProblem problem;
    EXPECT_FALSE(EventCondition::Parse("usr = x", TimesOfTest, &problem));
    EXPECT_THAT(problem.known, testing::Contains("user"));
}

TEST(EventConditions, AreTestedTogetherAndTellWhatCantBeRead) {
    const auto of = [](std::vector<const char*> texts) {
        std::vector<EventCondition> all;
        ConditionProblem problem;
        for (const char* text : texts)
            all.push_back(*EventCondition::Parse(text, nullptr, &problem));
        return EventConditions(all);
    };
    using Answer = EventConditions::Answer;
    EXPECT_EQ(of({"actor_pid = 4242", "event contains cmd"}).Test(eventOfTest), Answer::yes);
    EXPECT_EQ(of({"actor_pid = 4242", "event contains no!"}).Test(eventOfTest), Answer::no);
    EXPECT_EQ(of({"actor_pid = 1", "event contains cmd"}).Test(eventOfTest), Answer::no);
    EXPECT_EQ(of({"time >= 2026-11-12 12:00:00.500+02:00"}).Test(eventOfTest), Answer::yes);
    EXPECT_EQ(of({"actor_pid != 1"}).Test("{cmd"), Answer::unreadable);
    EXPECT_EQ(of({"event contains cmd"}).Test("{cmd"), Answer::yes);
}

// Long enough for the sixteen at a time, at each place, against the plain way.
TEST(TextSearch, FindsAtEveryPlace) {
    for (const std::string_view wanted : {"a", "Ab", "abC-", "aXXXXXXXXXXXXXXXXXXXXb"})
        for (std::size_t size = 0; size < 70; ++size)
            for (std::size_t at = 0; at + wanted.size() <= size; ++at) {
                std::string text(size, 'b');
                EXPECT_FALSE(TextSearch(wanted).IsIn(text));
                text.replace(at, wanted.size(), wanted);
                ZEL::MakeUpperAscii(text);
                EXPECT_TRUE(TextSearch(wanted).IsIn(text)) << wanted << " in " << text;
            }
    EXPECT_TRUE(TextSearch("").IsIn(""));
}

}  // namespace
}  // namespace zel
