#include <gmock/gmock.h>

#include "fleet/conditionsql.h"
#include "fleet/fleetquestion.h"
#include "fleet/fleettable.h"
#include "fleet/patternsql.h"
#include "fleet/sqltext.h"

namespace zel::fleet {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(SqlTextTest, LeavesNoWayOutOfALiteral) {
    EXPECT_EQ(SqlText(""), "''");
    EXPECT_EQ(SqlText("' OR 1 -- é"), R"('\' OR 1 -- é')");
    EXPECT_EQ(SqlText(std::string_view("a\\'\0\t\n\r", 7)), R"('a\\\'\0\t\n\r')");
    EXPECT_EQ(SqlText(LikeText("50%_\\")), R"('50\\%\\_\\\\')");
}

struct PatternCase {
    const char* expression;
    bool caseSensitive;
    const char* sql;
    bool isExact;
    const char* refused;
};

// What each piece of a pattern becomes; answers are compared by sameness.py and the fuzzer.
TEST(PatternSqlTest, SaysTheSameOrMoreOrRefuses) {
    constexpr PatternCase cases[] = {
        {R"(.*\\A_b\.exe)", false, R"(lower(f) LIKE '%\\\\a\\_b.exe')", true, ""},
        {"A.*é", true, "f LIKE 'A%é'", true, ""},
        {".*", false, "1", true, ""},
        {"a.{1}", false, R"(match(f, '\\A(?:[aA]\\C)\\z'))", true, ""},
        {"(k|[b-d]){2,}?", false, R"(match(f, '\\A(?:(?:[kK]|[\\x42-\\x44\\x62-\\x64]){2,})\\z'))",
         true, ""},
        {"[!-Z]", false, R"(match(f, '\\A(?:[\\x21-\\x7a])\\z'))", true, ""},
        {"a[^x]*b|[^x]+", true, R"(match(f, '\\A(?:a[^\\x78]*b|[^\\x78]+)\\z'))", true, ""},
        {"[^x]", true, R"(match(f, '\\A(?:\\C)\\z'))", false, ""},
        {"([^x]*)a", true, R"(match(f, '\\A(?:(?:\\C*)a)\\z'))", false, ""},
        {"a?[^x]*", true, R"(match(f, '\\A(?:a?\\C*)\\z'))", false, ""},
        {"^evil\\d$", true, R"(f LIKE '%evil%' AND match(f, '\\A(?:evil[\\x30-\\x39])\\z'))", true,
         ""},
        {"\\x01\\n?'%", true, R"(match(f, '\\A(?:\\x01\\x0a?\\\'\\%)\\z'))", true, ""},
        {"abc(?=d).*", true, "", false, "(?="},
        {"é+", true, "", false, "é"},
        {"[é]", true, "", false, "[é"},
        {"a++", true, "", false, "a+"},
        {"(a)\\1", true, "", false, "\\1"},
        {"a$b", true, "", false, "$"},
        {"windows\\B[a]{1001}", false, "lower(f) LIKE '%windows%'", false, "\\B"},
        {"((a{40}){40})", true, "", false, "((a{40}){40})"},
    };
    for (const PatternCase& each : cases) {
        SCOPED_TRACE(each.expression);
        const PatternSql sql = SqlOfPattern("f", each.expression, each.caseSensitive);
        EXPECT_EQ(sql.sql, each.sql);
        EXPECT_EQ(sql.isExact, each.isExact);
        EXPECT_EQ(sql.refused, each.refused);
    }
}

std::string Document(const std::string& subQueries, const std::string& more = "") {
    return R"({"event_query":{"events":[)" + subQueries + "]" + more + "}}";
}
std::string SubQuery(const std::string& more) {
    return R"({"begin_time":{"value":"1601-01-01T00:00:00.000Z"})" + more + "}";
}
std::string Path(const std::string& op, const std::string& values) {
    return R"(,"artifacts":{"target":{"object_type":"file","path":{"operator":{"value":")" + op +
           R"("},"value":[)" + values + "]}}}";
}
std::string Asked(const std::string& document, FleetScope scope = {}) {
    std::string problem;
    const auto question = FleetQuestion::Make(document, std::move(scope), &problem);
    return question ? question->Page(0, 10, nullptr) : "refused: " + problem;
}

TEST(FleetQuestionTest, CombinesConditionsAsAStoreDoes) {
    const std::pair<std::string, std::string> cases[] = {
        {Path("equals", R"("B","a")"), "AND (lower(target_path_name) IN ('b', 'a')) ORDER"},
        {Path("does_not_equal", R"("b","a")"), "(lower(target_path_name) NOT IN ('a', 'b'))"},
        {Path("less_than", R"("_b")"), "upper(target_path_name) < '_B'"},
        {Path("equals", ""), "bitAnd(present, 8) != 0 AND (0)"},
        {R"(,"action":["open"])",
         "WHERE substring(begin_time, 1, 13) >= '1601-01-01T00' AND begin_time >= "
         "'1601-01-01T00:00:00.000Z' AND (action = 'open') ORDER BY"},
        {R"(,"seq_num":3)", "(begin_time, sequence) >= ('1601-01-01T00:00:00.000Z', 3)"},
        {R"(,"end_time":{"value":"2026-01"})", "begin_time <= '2026-01' ORDER"},
    };
    for (const auto& [more, sql] : cases)
        EXPECT_THAT(Asked(Document(SubQuery(more))), HasSubstr(sql)) << more;
    EXPECT_THAT(Asked(Document(R"({"begin_time":{"value":"2026"}})")),
                HasSubstr("WHERE key >= 'p<begin_time>2026<sequence>0000000000' ORDER"));
    EXPECT_THAT(Asked(Document(SubQuery("")), {{"a'", "b"}, FleetScope::Order::newestFirst}),
                testing::AllOf(HasSubstr(R"(host IN ('a\'', 'b'))"), HasSubstr("begin_time DESC")));
}

TEST(FleetQuestionTest, RefusesWhatItCanNotAnswerWithItsPlace) {
    const std::string look = Path("fits_pattern", R"("x(?=a).*")");
    const std::pair<std::string, std::string> cases[] = {
        {"{", "the document can't be read"},
        {R"({"event_query":{"events":[{"action":["no such thing"]}]}})", "can't be read"},
        {Document(""), "there is no event"},
        {Document("{}"), "events[0]: there is no time"},
        {Document(SubQuery("") + "," +
                  SubQuery(R"(,"end_time":{"value":"x","operator":{"value":"less_than"}})")),
         "events[1]: its times make no range"},
        {Document(R"({"receive_time":{"value":"2026"}})"), "receipts by times such as"},
        {Document(SubQuery(Path("fits_pattern", R"("(")"))),
         "target_path_name: the pattern can't be read"},
        {Document(SubQuery(look)),
         "event_query.events[0], target_path_name: the fleet can't test (?= (byte 2 of the "
         "pattern): ask without it, or "
         "on one machine"},
        {Document(SubQuery(look + R"(,"action":["open"])")), "can't test"},
    };
    for (const auto& [document, problem] : cases)
        EXPECT_THAT(Asked(document), HasSubstr(problem)) << document;
    // With something else that leaves few rows, the store's own test has the last word.
    EXPECT_THAT(Asked(Document(SubQuery(look + R"(,"correlation_uid":{"value":["abc"]})"))),
                Not(HasSubstr("refused")));
    EXPECT_THAT(Asked(Document(R"({"begin_time":{"value":"2026-11-12T10:00:00.000Z"},"end_time":{)"
                               R"("value":"2026-11-13T09:59:59.999Z"})" +
                               look + "}")),
                Not(HasSubstr("refused")));
}

// One that a server can only say in a wider sense stands alone.
TEST(FleetQuestionTest, PutsSubQueriesTogetherWhereTheirOrderAllowsIt) {
    const std::string exact = SubQuery(Path("equals", R"("a")"));
    const std::string wider = SubQuery(Path("fits_pattern", R"("[^x]b")"));
    std::string problem;
    const auto one = FleetQuestion::Make(Document(exact + "," + exact), {}, &problem);
    ASSERT_EQ(one->Steps(), 1u);
    EXPECT_FALSE(one->GivesTooMuch(0));
    const auto three = FleetQuestion::Make(
        Document(exact + "," + wider + "," + exact, R"(,"limit_result_count":0)"), {}, &problem);
    ASSERT_EQ(three->Steps(), 3u);
    EXPECT_EQ(three->MostRows(), 1);
    FleetRow row;
    const auto decide = [&](std::size_t step, const char* path) {
        row.key = std::string(
                      "p<begin_time>2026-11-12T10:00:00.000Z<sequence>0000000000<object_type>file"
                      "<action>open<target_path_name>") +
                  path;
        return three->Decide(step, row);
    };
    EXPECT_EQ(decide(1, "ab"), FleetQuestion::Verdict::wanted);
    EXPECT_EQ(decide(1, "xb"), FleetQuestion::Verdict::unwanted);
    EXPECT_EQ(decide(2, "a"), FleetQuestion::Verdict::unwanted);  // came with the first
    row.beginTime = "2026-11-12T10:00:00.000Z";
    EXPECT_THAT(one->Page(0, 10, &row), HasSubstr("begin_time, sequence, key, host) > (0, '2026"));
}

TEST(FleetRowReaderTest, TakesRowsAlone) {
    FleetRowReader reader;
    FleetRow row;
    const std::string start = R"({"host":"h","key":"k","receive_ms":)";
    EXPECT_TRUE(reader.Read(start + R"("1700000000000","event":"{\"\u00e9\":1}"})", &row));
    EXPECT_EQ(row.receiveMs, 1'700'000'000'000u);
    EXPECT_EQ(row.event, "{\"é\":1}");
    for (const char* const rest :
         {R"(1})", R"(-1,"event":""})", R"("1x","event":""})", R"(1,"event":2})", R"(1,"event":"")",
          R"(1,"event":""} x)", R"(1,"event":"","more":1})"})
        EXPECT_FALSE(reader.Read(start + rest, &row)) << rest;
    EXPECT_FALSE(reader.Read("Code: 395, e.displayText() = ", &row));
}

TEST(FleetTableTest, SuitsTheServer) {
    const auto old = TableStatements({true, "", 30}), later = TableStatements({false, "", 30});
    ASSERT_EQ(old.size(), 2u);
    for (const char* const word : {"CODEC", "LowCardinality", "INDEX", "TTL", "SETTINGS"}) {
        EXPECT_THAT(old[0], Not(HasSubstr(word)));
        EXPECT_THAT(later[0], HasSubstr(word));
    }
    const auto cluster = TableStatements({false, "c'", 0});
    ASSERT_EQ(cluster.size(), 4u);
    EXPECT_THAT(cluster[0],
                testing::AllOf(HasSubstr(R"(events_local ON CLUSTER 'c\'')"),
                               HasSubstr("ReplicatedReplacingMergeTree("), Not(HasSubstr("TTL"))));
    EXPECT_THAT(
        cluster[1],
        HasSubstr(R"(Distributed('c\'', currentDatabase(), events_local, sipHash64(host)))"));
    EXPECT_TRUE(IsOldServer("18.16.1"));
    EXPECT_FALSE(IsOldServer("26.7.2.1"));
}

}  // namespace
}  // namespace zel::fleet
