#include "hunt/ruleset.h"

#include <gmock/gmock.h>
#include <re2/re2.h>

#include <random>

#include "common/jsontext.h"
#include "hunt/rulereader.h"
#include "hunt/textpattern.h"

namespace zel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string RuleText(const std::string& detection, const std::string& category) {
    return "title: t\nlogsource: {category: " + category + ", product: windows}\ndetection:\n" +
           detection;
}

std::vector<Rule> RulesOf(const std::string& yaml) {
    RuleFile file = ReadRules(yaml, "rule.yml", {});
    for (const RuleProblem& problem : file.problems)
        ADD_FAILURE() << problem.what << "\n" << yaml;
    return std::move(file.rules);
}

std::string Launch(const std::string& target, const std::string& unmapped) {
    return R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["C:\\p.exe"]}},)"
           R"("target":{"object_type":"process",)" +
           target +
           R"(}},"action":["launch"],"begin_time":{"value":"2026-03-02T09:15:03.123Z"},)"
           R"("unmapped":{)" +
           unmapped +
           R"(},"source":{"format":"windows-json",)"
           R"("channel":"Microsoft-Windows-Sysmon/Operational","event_id":1}})";
}

std::string Connect(const std::string& address) {
    return R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["C:\\p.exe"]}},)"
           R"("target":{"object_type":"network","dst_ip":{"value":[")" +
           address +
           R"("]},"dst_port":{"value":[4444]}}},"action":["connect"],)"
           R"("begin_time":{"value":"2026-03-02T09:15:03.123Z"},"source":{"format":"windows-json",)"
           R"("channel":"Microsoft-Windows-Sysmon/Operational","event_id":3}})";
}

TEST(RuleSet, DecidesByWhatTheTestsOfARuleSay) {
    const std::string launch = Launch(
        R"("path":{"value":["C:\\Windows\\reg.exe"]},"cmd_line":{"value":["reg \"ADD\" HKLM\\x"]})",
        R"("User":"PC\\ann","Company":"","Description":null,"OriginalFileName":"C:\\P.EXE")");
    const std::string connect = Connect("10.1.2.3");
    const struct {
        const char* detection;
        const char* why;  // empty: it does not fit
        bool isConnect = false;
    } rows[] = {
        {"  s: {Image: 'c:\\windows\\REG.exe'}", "s: Image is c:\\windows\\REG.exe"},
        {"  s: {Image|cased: 'c:\\windows\\REG.exe'}", ""},
        {"  s: {Image|endswith: [\\cmd.exe, \\reg.exe]}", "s: Image ends with \\reg.exe"},
        {"  s: {Image|startswith: 'C:\\WIN'}", "s: Image starts with C:\\WIN"},
        {"  s: {Image|contains: '\\reg.exe\\'}", ""},
        {"  s: {CommandLine|contains: ' \"add\" '}", "s: CommandLine contains  \"add\" "},
        {"  s: {CommandLine|contains|cased: ' \"add\" '}", ""},
        {"  s: {CommandLine: 'reg*hk?m*'}", "s: CommandLine fits reg*hk?m*"},
        {"  s: {CommandLine|re: 'A[D]+\" HK'}", "s: CommandLine fits the expression A[D]+\" HK"},
        {"  s: {CommandLine|re: 'a[d]+\" HK'}", ""},
        {"  s: ['nowhere', 'PC\\a*']", "s: a value contains PC\\a"},
        {"  s: {Company: ''}", "s: Company is empty"},
        {"  s: {Description: null, Image|exists: true}", "s: Description is missing"},
        {"  s: {Company: null}", ""},
        {"  s: {User|exists: false}", ""},
        {"  s: {OriginalFileName|fieldref: ParentImage}",
         "s: OriginalFileName is the same as ParentImage"},
        {"  s: {OriginalFileName|fieldref: Nothing}", ""},
        {"  s: {DestinationPort|gte: 4444}", "s: DestinationPort >= 4444", true},
        {"  s: {DestinationPort|lt: 4444}", "", true},
        {"  s: {Image|lt: 4444}", "", true},
        {"  s: {DestinationIp|cidr: '10.0.0.0/8'}", "s: DestinationIp is in 10.0.0.0/8", true},
        {"  s: {DestinationIp|cidr: '10.1.3.0/24'}", "", true},
    };
    for (const auto& row : rows) {
        const auto yaml = RuleText(std::string(row.detection) + "\n  condition: s\n",
                                   row.isConnect ? "network_connection" : "process_creation");
        const RuleSet set(RulesOf(yaml), {});
        RuleRun run(set);
        ASSERT_TRUE(run.Test(row.isConnect ? connect : launch)) << yaml;
        if (*row.why == '\0') {
            EXPECT_THAT(run.Hits(), IsEmpty()) << yaml;
            continue;
        }
        ASSERT_THAT(run.Hits(), ElementsAre(0)) << yaml;
        EXPECT_THAT(run.WhyOf(0).front(), row.why);
        EXPECT_TRUE(run.Test(row.isConnect ? launch : connect));
        EXPECT_THAT(run.Hits(), IsEmpty()) << "of another source: " << yaml;
    }
}

TEST(RuleSet, TellsAllSearchesThatMadeARuleFit) {
    const RuleSet set(
        RulesOf(RuleText("  img: {Image|endswith: reg.exe, User: 'pc*'}\n"
                         "  cli: [{CommandLine: nothing}, {CommandLine: 'reg*'}]\n"
                         "  own: {User: SYSTEM}\n  condition: img and cli and not own\n",
                         "process_creation")),
        {});
    RuleRun run(set);
    ASSERT_TRUE(run.Test(Launch(R"("path":{"value":["reg.exe"]},"cmd_line":{"value":["reg add"]})",
                                R"("User":"PC\\ann")")));
    ASSERT_THAT(run.Hits(), ElementsAre(0));
    EXPECT_THAT(run.WhyOf(0),
                ElementsAre("img: Image ends with reg.exe", "img: User starts with pc",
                            "cli: CommandLine starts with reg"));
    EXPECT_FALSE(run.TestAll("{"));
    EXPECT_THAT(run.Hits(), IsEmpty());
}

TEST(RuleSet, TellsHowFarTheRecordsDecideARule) {
    const struct {
        const char *category, *condition;
        RuleReach::Kind kind;
        const char* reason;
    } rows[] = {
        {"process_creation", "key", RuleReach::Kind::whole, ""},
        {"process_creation", "key or never", RuleReach::Kind::partly, ""},
        {"process_creation", "key and not never", RuleReach::Kind::partly, ""},
        {"process_creation", "key and never", RuleReach::Kind::none, "without which it can't fit"},
        {"process_creation", "key or not never", RuleReach::Kind::none, "nothing else decides it"},
        {"process_creation", "key and lacks", RuleReach::Kind::partly, ""},
        {"proxy", "key", RuleReach::Kind::none, "proxy"},
    };
    for (const auto& row : rows) {
        const std::string detection =
            "  key: {Image: a, CommandLine: b}\n  never: {QueryName: 'x'}\n"
            "  lacks: {QueryName: null}\n  condition: ";
        const RuleSet set(RulesOf(RuleText(detection + row.condition + "\n", row.category)), {});
        const RuleReach& reach = set.ReachOf(0);
        EXPECT_EQ(reach.kind, row.kind) << row.condition << ": " << reach.reason;
        EXPECT_THAT(reach.reason, HasSubstr(row.reason));
        EXPECT_EQ(set.Narrowings().empty(), row.kind == RuleReach::Kind::none);
        if (std::string_view(row.condition) == "key or never") {
            EXPECT_THAT(reach.byKey, ElementsAre("Image (target_path)"));
            EXPECT_THAT(reach.byText, ElementsAre("CommandLine (target_cmd_line)"));
            EXPECT_THAT(reach.never, ElementsAre("QueryName"));
        }
    }
}

// Rules and events of few words, so that many fit.
class RandomHunt {
public:
    explicit RandomHunt(std::uint32_t seed) : random_(seed) {}

    Rule RandomRule() {
        Rule rule;
        rule.source.product = "windows";
        rule.source.category = Pick(4) == 0 ? "network_connection" : "process_creation";
        rule.condition = RandomNode(3);
        return rule;
    }

    std::string RandomEvent() {
        if (Pick(6) == 0)
            return Connect("10.0.0." + std::to_string(Pick(4)));
        std::string unmapped;
        for (const char* name : {"User", "Description"}) {
            if (Pick(2) == 0)
                unmapped += (unmapped.empty() ? "\"" : ",\"") + std::string(name) +
                            "\":" + Written(Words(3));
        }
        std::string target = "\"path\":{\"value\":[" + Written(Words(2)) + "]}";
        if (Pick(3) > 0)
            target += ",\"cmd_line\":{\"value\":[" + Written(Words(4)) + "]}";
        return Launch(target, unmapped);
    }

private:
    std::size_t Pick(std::size_t count) { return random_() % count; }

    std::string Words(std::size_t most) {
        static const char* const words[] = {"\\cmd.exe",
                                            "C:\\win",
                                            " \"add\" ",
                                            "a/b",
                                            "key",
                                            "\tKey\n",
                                            "stra\xC3\x9F"
                                            "e",
                                            "\xE2\x84\xAA"
                                            "ey",
                                            "-enc ",
                                            "12",
                                            "MASK",
                                            "ma\xC5\xBF"
                                            "k"};
        std::string text;
        for (std::size_t count = 1 + Pick(most); count > 0; --count)
            text += words[Pick(std::size(words))];
        return text;
    }

    // JSON, now and then as few write it.
    std::string Written(const std::string& text) {
        const std::string usual = wm::JsonString(text);
        const std::size_t way = Pick(8);
        std::string written;
        for (const char c : usual) {
            if (way == 0 && c == '/')
                written += "\\/";
            else if (way == 1 && (c == 'e' || c == 'E'))
                written += c == 'e' ? "\\u0065" : "\\u0045";
            else
                written += c;
        }
        return written;
    }

    RuleNode RandomNode(int depth) {
        RuleNode node;
        const std::size_t kind = depth == 0 ? 0 : Pick(6);
        if (kind < 3) {
            node.kind = RuleNode::Kind::field;
            const char* const fields[] = {"Image",       "CommandLine",     "User", "Description",
                                          "ParentImage", "DestinationPort", ""};
            node.test.field = fields[Pick(std::size(fields))];
            for (std::size_t count = 1 + Pick(3); count > 0; --count)
                node.test.values.push_back(RandomTest());
            return node;
        }
        node.kind = kind == 3   ? RuleNode::Kind::all
                    : kind == 4 ? RuleNode::Kind::any
                                : RuleNode::Kind::none;
        for (std::size_t count = kind == 5 ? 1 : 2 + Pick(2); count > 0; --count)
            node.children.push_back(RandomNode(depth - 1));
        return node;
    }

    ValueTest RandomTest() {
        using Piece = TextPattern::Piece;
        ValueTest test;
        const std::size_t kind = Pick(12);
        if (kind == 0) {
            test.kind = Pick(2) == 0 ? ValueTest::Kind::isNull : ValueTest::Kind::isThere;
        } else if (kind < 3) {
            test.kind = ValueTest::Kind::expression;
            const char* const expressions[] = {"(?i)mask", "(cmd|key)", "(?i)K[a-e]y\\\\",
                                               "e{2,}",    "^C:.*add",  "\\x{212A}ey"};
            test.expression =
                std::make_shared<RE2>(expressions[Pick(std::size(expressions))], RE2::Quiet);
        } else if (kind == 3) {
            test.kind = ValueTest::Kind::greater;
            test.number = 11;
        } else {
            test.cased = Pick(4) == 0;
            if (Pick(3) > 0)
                test.pattern.pieces.push_back({Piece::Kind::anyRun, {}});
            test.pattern.pieces.push_back({Piece::Kind::text, Words(2)});
            if (Pick(4) == 0) {
                test.pattern.pieces.push_back({Piece::Kind::anyOne, {}});
                test.pattern.pieces.push_back({Piece::Kind::text, Words(1)});
            }
            if (Pick(3) > 0)
                test.pattern.pieces.push_back({Piece::Kind::anyRun, {}});
        }
        return test;
    }

    std::mt19937 random_;
};

// The record's kind, as a key would have it.
bool IsWithin(const std::vector<Narrowing>& all, const std::string& object,
              const std::string& action) {
    return std::any_of(all.begin(), all.end(), [&](const Narrowing& each) {
        return (each.object.empty() || each.object == object) &&
               (each.actions.empty() ||
                std::find(each.actions.begin(), each.actions.end(), action) != each.actions.end());
    });
}

TEST(RuleSet, FindsByThePassWhatTestingEachRuleFinds) {
    const std::uint32_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomHunt hunt(seed);
    std::vector<Rule> rules;
    std::vector<std::vector<Narrowing>> narrowings;
    for (int i = 0; i < 120; ++i) {
        rules.push_back(hunt.RandomRule());
        narrowings.push_back(RuleSet({rules.back()}, {}).Narrowings());
    }
    const RuleSet set(rules, {});
    RuleRun run(set), whole(set);
    std::size_t hits = 0;
    for (int i = 0; i < 400; ++i) {
        const std::string event = hunt.RandomEvent();
        const bool isLaunch = event.find("\"launch\"") != event.npos;
        ASSERT_TRUE(run.Test(event) && whole.TestAll(event)) << event;
        ASSERT_EQ(run.Hits(), whole.Hits()) << event;
        hits += run.Hits().size();
        for (const std::uint32_t rule : run.Hits())
            EXPECT_TRUE(IsWithin(narrowings[rule], isLaunch ? "process" : "network",
                                 isLaunch ? "launch" : "connect"));
    }
    EXPECT_GT(hits, 400U) << "too few fit for the test to say anything";
}

}  // namespace
}  // namespace zel
