#include "hunt/correlator.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>

#include "hunt/rulereader.h"

namespace zel {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

// Single rules a, b and c fit launches of a.exe, b.exe and c.exe.
const std::string singles = [] {
    std::string yaml;
    for (const char name : std::string("abc"))
        yaml += std::string("title: ") + name + "\nname: " + name +
                "\nlogsource: {category: process_creation, product: windows}\n"
                "detection: {s: {Image|endswith: " +
                name + ".exe}, condition: s}\n---\n";
    return yaml;
}();

std::string Counting(const std::string& title, const std::string& rest) {
    return "title: " + title + "\nname: " + title + "\ncorrelation: {" + rest + "}\n";
}

// A launch at so many seconds; `user` empty: none.
std::string LaunchAt(int second, char name, const std::string& user) {
    char time[32];
    std::snprintf(time, sizeof(time), "2026-03-02T09:%02d:%02d.000Z", second / 60 % 60,
                  second % 60);
    return R"({"artifacts":{"actor":{"object_type":"process","path":{"value":["C:\\p.exe"]}},)"
           R"("target":{"object_type":"process","path":{"value":["C:\\)" +
           std::string(1, name) + R"(.exe"]}}},"action":["launch"],"begin_time":{"value":")" +
           time + R"("},"unmapped":{"Company":")" + user + R"(co")" +
           (user.empty() ? "" : R"(,"User":")" + user + "\"") +
           R"(},"source":{"format":"windows-json",)"
           R"("channel":"Microsoft-Windows-Sysmon/Operational","event_id":1}})";
}

struct Deed {
    int second;
    char name;
    std::string user;
};

// Each hit as "title second-second group.. count".
std::vector<std::string> HitsOf(const RuleSet& set, const std::vector<Deed>& deeds,
                                std::size_t mostBytes = 1U << 20,
                                std::uint64_t* givenUp = nullptr) {
    RuleRun run(set);
    Correlator correlator(set, mostBytes);
    for (const RuleProblem& problem : correlator.Problems())
        ADD_FAILURE() << problem.what;
    std::vector<std::string> hits;
    for (const Deed& deed : deeds) {
        EXPECT_TRUE(run.Test(LaunchAt(deed.second, deed.name, deed.user)));
        for (const CorrelationHit& hit : correlator.Take(run)) {
            std::string text = set.Rules()[hit.rule].title + " " + hit.first.substr(14, 5) + "-" +
                               hit.last.substr(14, 5);
            for (const std::string& value : hit.group)
                text += " " + value;
            hits.push_back(text + " " + std::to_string(hit.count));
        }
    }
    if (givenUp != nullptr)
        *givenUp = correlator.GivenUp();
    return hits;
}

RuleSet SetOf(const std::string& yaml) {
    RuleFile file = ReadRules(yaml, "rules.yml", {});
    for (const RuleProblem& problem : file.problems)
        ADD_FAILURE() << problem.what << "\n" << yaml;
    return RuleSet(std::move(file.rules), {});
}

TEST(Correlator, CountsInWindowsOfEachGroup) {
    const struct {
        const char* what;
        std::string rules;
        std::vector<Deed> deeds;
        std::vector<std::string> hits;
    } rows[] = {
        {"events of one user within a minute; a burst is one hit in its span",
         Counting("n",
                  "type: event_count, rules: [a], group-by: [User], timespan: 1m, "
                  "condition: {gte: 3}"),
         {{0, 'a', "ann"},
          {1, 'a', "bob"},
          {10, 'a', "ANN"},
          {11, 'b', "ann"},
          {60, 'a', "ann"},
          {60, 'a', "ann"},
          {61, 'a', "ann"},
          {62, 'a', "ann"},
          {63, 'a', "ann"},
          {64, 'a', ""},
          {64, 'a', ""},
          {64, 'a', ""}},
         {"n 00:00-01:00 ann 3", "n 01:01-01:03 ann 3"}},
        {"events beyond the span are none, late ones count as of now",
         Counting("n", "type: event_count, rules: [a], timespan: 10s, condition: {gt: 1}"),
         {{0, 'a', "x"}, {11, 'a', "y"}, {5, 'a', "z"}},
         {"n 00:11-00:05 2"}},
        {"values, each once",
         Counting("v",
                  "type: value_count, rules: [a, b], group-by: [Image], timespan: 1m, "
                  "condition: {gte: 2, field: User}"),
         {{0, 'a', "ann"}, {1, 'a', "Ann"}, {2, 'b', "bob"}, {3, 'a', "bob"}},
         {"v 00:01-00:03 C:\\a.exe 2"}},
        {"all rules in any order, by fields of other names",
         Counting("t",
                  "type: temporal, rules: [a, b], group-by: [who], timespan: 1m, "
                  "aliases: {who: {a: User, b: Company}}"),
         {{0, 'b', "ann"}, {1, 'a', "ann"}, {2, 'a', "annco"}},
         {"t 00:00-00:02 annco 2"}},
        {"all rules in their order",
         Counting("o", "type: temporal_ordered, rules: [a, b, c], timespan: 1m"),
         {{0, 'b', ""}, {1, 'a', ""}, {2, 'c', ""}, {3, 'b', ""}, {50, 'a', ""}, {61, 'c', ""}},
         {"o 00:01-01:01 3"}},
        {"a chain that began too early",
         Counting("o", "type: temporal_ordered, rules: [a, b], timespan: 1m"),
         {{0, 'a', ""}, {61, 'b', ""}, {62, 'a', ""}, {63, 'b', ""}},
         {"o 01:02-01:03 2"}},
        {"a rule of rules by another name of its group",
         Counting("two",
                  "type: event_count, rules: [a], group-by: [User], timespan: 10s, "
                  "condition: {gte: 1}") +
             "---\n" +
             Counting("both",
                      "type: temporal, rules: [two, b], group-by: [who], timespan: 1m, "
                      "aliases: {who: {two: User, b: Company}}"),
         {{0, 'a', "annco"}, {1, 'b', "ann"}},
         {"both 00:00-00:01 annco 2"}},
        {"a rule of rules of rules, and what it counts alone is hidden",
         Counting("two",
                  "type: event_count, rules: [a], group-by: [User], timespan: 10s, "
                  "condition: {gte: 2}") +
             "---\n" +
             Counting("both", "type: temporal, rules: [two, b], group-by: [User], timespan: 1m"),
         {{0, 'a', "ann"}, {1, 'a', "ann"}, {2, 'b', "bob"}, {3, 'b', "ann"}},
         {"both 00:01-00:03 ann 2"}},
    };
    for (const auto& row : rows)
        EXPECT_THAT(HitsOf(SetOf(singles + row.rules), row.deeds), ElementsAreArray(row.hits))
            << row.what;
}

TEST(Correlator, HidesWhatIsToldAsAPart) {
    const std::string counting = "type: event_count, rules: [a], timespan: 1m, condition: {gte: 2}";
    for (const bool generates : {false, true}) {
        const RuleSet set =
            SetOf(singles + Counting("n", counting + (generates ? ", generate: true" : "")));
        const Correlator correlator(set);
        EXPECT_EQ(correlator.Hides(0), !generates);
        EXPECT_FALSE(correlator.Hides(1));
        EXPECT_FALSE(correlator.IsIdle());
    }
}

TEST(Correlator, RefusesWhatItCannotTell) {
    const struct {
        const char *rest, *problem;
    } rows[] = {
        {"type: event_count, rules: [d], timespan: 1m, condition: {gte: 2}",
         "no rule is called \"d\""},
        {"type: event_count, rules: [a], timespan: 1m, condition: {lt: 2}", "only gte and gt"},
        {"type: event_count, rules: [a], timespan: 1m, condition: {gte: 0}", "none"},
        {"type: temporal, rules: [a, n], timespan: 1m", "counts this one in turn"},
        {"type: event_count, rules: [''], timespan: 1m, condition: {gte: 2}", "no rule is called"},
        {"type: temporal, rules: [a, b], timespan: 1m, group-by: [who], "
         "aliases: {who: {a: User, d: User}}",
         "the alias \"who\" is one of the rule \"d\", which it does not count"},
    };
    for (const auto& row : rows) {
        const RuleSet set = SetOf(singles + Counting("n", row.rest));
        Correlator correlator(set);
        ASSERT_EQ(correlator.Problems().size(), 1U) << row.rest;
        EXPECT_THAT(correlator.Problems().front().what, HasSubstr(row.problem));
        EXPECT_TRUE(correlator.IsIdle());
        EXPECT_FALSE(correlator.Hides(0));
    }
}

// Each counts the one before it, read in either order.
TEST(Correlator, RefusesTowersOfRules) {
    for (const bool isUpwards : {false, true}) {
        std::vector<std::string> tower;
        for (int level = 1; level <= 17; ++level)
            tower.push_back(Counting("n" + std::to_string(level),
                                     "type: event_count, rules: [" +
                                         (level == 1 ? "a" : "n" + std::to_string(level - 1)) +
                                         "], timespan: 1m, condition: {gte: 1}"));
        if (isUpwards)
            std::reverse(tower.begin(), tower.end());
        std::string yaml = singles;
        for (const std::string& rule : tower)
            yaml += rule + "---\n";
        const RuleSet set(ReadRules(yaml, "f", {}).rules, {});
        const Correlator correlator(set);
        ASSERT_FALSE(correlator.Problems().empty());
        for (const RuleProblem& problem : correlator.Problems())
            EXPECT_THAT(problem.what, AnyOf(HasSubstr("16 levels"), HasSubstr("counted itself")));
    }
}

TEST(Correlator, TellsHowFarRecordsDecideWhatItCounts) {
    const std::string lost =
        "title: lost\nname: lost\nlogsource: {category: proxy}\n"
        "detection: {s: {x: y}, condition: s}\n---\n";
    const std::string counting = "type: event_count, timespan: 1m, condition: {gte: 1}, ";
    using Kind = RuleReach::Kind;
    const struct {
        std::string rest;
        Kind kind;
        const char* reason;
    } rows[] = {
        {counting + "rules: [a, b], group-by: [User]", Kind::whole, ""},
        {counting + "rules: [a, lost]", Kind::partly, "category proxy"},
        {"type: temporal, rules: [a, lost], timespan: 1m", Kind::none, "category proxy"},
        {counting + "rules: [a], group-by: [QueryName]", Kind::none,
         "no event that the rule \"a\" finds has QueryName"},
        {"type: value_count, rules: [a], timespan: 1m, condition: {field: QueryName, gte: 1}",
         Kind::none, "has QueryName"},
    };
    for (const auto& row : rows) {
        const RuleSet set = SetOf(singles + lost + Counting("n", row.rest));
        const Correlator correlator(set);
        ASSERT_THAT(correlator.Problems(), IsEmpty()) << row.rest;
        EXPECT_EQ(correlator.ReachOf(4).kind, row.kind) << row.rest;
        EXPECT_THAT(correlator.ReachOf(4).reason, HasSubstr(row.reason));
        EXPECT_EQ(correlator.IsIdle(), row.kind == Kind::none);
    }
}

TEST(Correlator, GivesTheOldestGroupsUpWhereMemoryIsShort) {
    const RuleSet set = SetOf(singles + Counting("n",
                                                 "type: event_count, rules: [a], group-by: [User], "
                                                 "timespan: 1h, condition: {gte: 2}"));
    std::vector<Deed> deeds;
    for (int i = 0; i < 100; ++i)
        deeds.push_back({i, 'a', "user" + std::to_string(i)});
    deeds.push_back({100, 'a', "user0"});   // given up
    deeds.push_back({101, 'a', "user99"});  // not
    std::uint64_t givenUp = 0;
    EXPECT_THAT(HitsOf(set, deeds, 20000, &givenUp), ElementsAre("n 01:39-01:41 user99 2"));
    EXPECT_GT(givenUp, 50U);
}

}  // namespace
}  // namespace zel
