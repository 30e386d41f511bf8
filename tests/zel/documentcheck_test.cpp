#include "zel/query/documentcheck.h"

#include <gmock/gmock.h>

#include "zel/query/jsonscan.h"

namespace zel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

DocumentFindings Check(const std::string& text) {
    web::json::value document;
    std::string problem;
    EXPECT_TRUE(ParseDocument(text, &document, &problem)) << problem;
    return CheckDocument(document);
}

// A sub-query with a time and whatever else.
std::string With(const std::string& members) {
    return R"({"event_query":{"events":[{"begin_time":{"value":"2020-01-01T00:00:00.000Z"})" +
           std::string(members.empty() ? "" : ",") + members + "}]}}";
}
std::string Target(const std::string& members) {
    return With(R"("artifacts":{"target":{"object_type":"file",)" + members + "}}");
}

TEST(DocumentCheck, PointsAtSyntax) {
    const struct {
        const char* text;
        const char* place;
    } rows[] = {
        {"{\"a\":1,\n \"b\" 2}", "line 2, column 6: a colon"},
        {"{\"\u00e9\u00e9\":tru}", "line 1, column 7: a value"},
        {"{\"a\":1} x", "line 1, column 9: nothing is expected"},
        {"{/* no */}", "line 1, column 2: a name"},
        {"{\"a\":01}", "line 1, column 7: a number has no leading zeros"},
        {"[\"a\\d\"]", "line 1, column 4: no such escape"},
        {"[\"\\ud800\"]", "line 1, column 3: half of a surrogate pair"},
        {"[\"\\ud83d\\ude0\"]", "line 1, column 14: four hexadecimal digits"},
        {"[\"a\nb\"]", "line 1, column 4: a control character"},
        {"[\"a", "line 1, column 4: the string has no end"},
        {" \n", "empty"},
        {"\xff", "not UTF-8"},
    };
    for (const auto& row : rows) {
        web::json::value document;
        std::string problem;
        EXPECT_FALSE(ParseDocument(row.text, &document, &problem)) << row.text;
        EXPECT_THAT(problem, HasSubstr(row.place)) << row.text;
    }
    EXPECT_FALSE(JsonScan(std::string(1000, '[')).Ok());
    EXPECT_TRUE(JsonScan("[-0.5e+3,\"\\ud83d\\ude00\\n\",{},[],null,true,false]").Ok());
    EXPECT_EQ(JsonScan(R"( {"a":{"b":1} , "b" : [1, 2]} )").Member("b"), "[1, 2]");
}

TEST(DocumentCheck, NamesThePlaceOfWhatIsWrong) {
    const std::string event = "event_query.events[0]";
    const std::string path = event + ".artifacts.target.path";
    const std::pair<std::string, std::string> rows[] = {
        {"[]", "the document: an object is expected, not an array"},
        {"{}", "the document: there is no event_query"},
        {R"({"event_qery":{}})",
         "event_qery: unknown key \"event_qery\"; did you mean \"event_query\"?"},
        {R"({"event_query":{}})", "event_query: there are no events"},
        {R"({"event_query":{"events":[]}})", "event_query.events: there is no event"},
        {R"({"event_query":{"events":[{}]}})", event + ": there is no time"},
        {With("").replace(16, 0, R"("limit_result_count":1.5,)"),
         "event_query.limit_result_count: a whole number"},
        {With(R"("action":["create","creat"])"),
         event + ".action[1]: unknown action \"creat\"; did you mean \"create\"?"},
        {With(R"("type_id":{"value":[8001,-1]})"), event + ".type_id.value[1]: a whole number"},
        {With(R"("seq_num":1,"seq_num":2)"), event + ".seq_num: stands twice"},
        {With(R"("artifacts":{"actor":{"path":{"value":["a"]}}})"),
         event + ".artifacts.actor: the object_type is missing"},
        {With(R"("artifacts":{"target":{"object_type":"fil"}})"),
         event + ".artifacts.target.object_type: unknown object type \"fil\"; did you"},
        {With(R"("artifacts":{"target":{"object_type":"event"}})"),
         event + ".artifacts.target.object_type: unknown object type"},
        {Target(R"("path":{"value":"a"})"), path + ".value: an array is expected"},
        {Target(R"("path":{"value":["a",1]})"), path + ".value[1]: a string is expected"},
        {Target(R"("path":{"operator":{"value":"equals"}})"), path + ": there is no value"},
        {Target(R"("path":{"operator":"contains","value":["a"]})"),
         path + ".operator: an object is expected"},
        {Target(R"("path":{"operator":{"value":"contain"},"value":["a"]})"),
         path + ".operator.value: unknown operator \"contain\"; did you mean \"contains\"?"},
        {Target(R"("path":{"operator":{"case_insensitive":true},"value":["a"]})"),
         path + ".operator: the operator's value is missing"},
        {Target(R"("path":{"operator":{"value":"fits_pattern"},"value":["a","b("]})"),
         path + ".value[1]: Unmatched marking parenthesis ( or \\(.\n  b(\n    ^"},
        // The patterns for paths are expanded first, which leaves no < or > in them.
        {Target(R"("path":{"operator":{"value":"fits_pattern"},"value":["a","c(?<n>x)z"]})"),
         path + ".value[1]: < and > stand for % in the pattern of a path, so that (?<name>..), "
                "(?<=..), (?<!..) and (?>..) can't be used\n  c(?<n>x)z\n     ^"},
        {Target(R"("path":{"operator":{"value":"fits_pattern"},"value":["(?<=x)y"]})"),
         path + ".value[0]: < and > stand for %"},
        {Target(R"("path":{"value":["a*","(?<!x)y"]})"), path + ".value[1]: < and > stand for %"},
        {With(R"("artifacts":{"actor":{"object_type":"process","path":{"operator":)"
              R"({"value":"fits_pattern"},"value":["(?>x)y"]}}})"),
         event + ".artifacts.actor.path.value[0]: < and > stand for %"},
        {R"({"event_query":{"events":[{"begin_time":{}}]}})",
         event + ".begin_time: there is no value"},
        {R"({"event_query":{"events":[{"begin_time":{"value":"2020-01-01T00:00:00Z"}}]}})",
         event + ".begin_time.value: times are compared as text; write 2020-01-01T00:00:00.000Z"},
        {R"({"event_query":{"events":[{"begin_time":{"value":"2020-13-01T00:00:00.000Z"}}]}})",
         event + ".begin_time.value: a time such as"},
        {With(
             R"("end_time":{"operator":{"value":"greater_than"},"value":"2020-01-01T00:00:00.000Z"})"),
         event + ".end_time.operator.value: \"greater_than\" makes no time range"},
        {R"({"event_query":{"events":[{"begin_time":{"operator":{"value":"equals"},)"
         R"("value":"2020-01-01T00:00:00.000Z"}}]}})",
         event + ".begin_time.operator.value: \"equals\" makes no time range"},
        {R"({"event_query":{"events":[{"begin_time":{"operator":{"value":"less_than"},)"
         R"("value":"1601-01-01T00:00:00.000Z"}}]}})",
         event + ".begin_time.value: times go from"},
        {R"({"event_query":{"events":[{"receive_time":{"value":"2020-01-01T00:00:00.000Z"},)"
         R"("action":["create"]}]}})",
         event + ": conditions can't be combined with receive_time"},
    };
    for (const auto& [text, start] : rows) {
        const DocumentFindings found = Check(text);
        ASSERT_EQ(found.errors.size(), 1u) << text;
        EXPECT_THAT(found.errors[0], StartsWith(start)) << text;
    }
}

TEST(DocumentCheck, TakesWhatTheOtherFieldsMatch) {
    const std::string pair = R"({"operator":{"value":"fits_pattern"},"value":["(?<!x)y(?>z)."]})";
    for (const std::string& text :
         {Target(R"("sha2":)" + pair), With(R"("correlation_uid":)" + pair),
          With(R"("artifacts":{"target":{"object_type":"reg_key","path":)" + pair + "}}")}) {
        EXPECT_THAT(Check(text).errors, testing::IsEmpty()) << text;
        EXPECT_THAT(Check(text).warnings, testing::IsEmpty()) << text;
    }
}

TEST(DocumentCheck, TellsWhatHasNoEffect) {
    const std::pair<std::string, std::string> rows[] = {
        {Target(R"("md5":{"value":["a"]})"), "event_query.events[0].artifacts.target.md5 has no"},
        {With(R"("action":[])"), "event_query.events[0].action has no effect"},
        {With(R"("artifacts":{"result":{"object_type":"file"}})"),
         "event_query.events[0].artifacts.result has no effect"},
        {With(R"("artifacts":{"target":{"object_type":"process","uid":{"value":["a"]}}})"),
         "event_query.events[0].artifacts.target.uid has no effect"},
        {Target(R"("path":{"value":["a*","b.exe"]})"),
         "event_query.events[0].artifacts.target.path.value[1] stands behind"},
        {Target(R"("path":{"operator":{"value":"fits_pattern"},"value":["a\\>b"]})"),
         "event_query.events[0].artifacts.target.path.value[0] holds < or >, which stand for %"},
    };
    for (const auto& [text, start] : rows) {
        const DocumentFindings found = Check(text);
        EXPECT_TRUE(found.errors.empty()) << text << found.errors[0];
        ASSERT_EQ(found.warnings.size(), 1u) << text;
        EXPECT_THAT(found.warnings[0], StartsWith(start)) << text;
    }
}

}  // namespace
}  // namespace zel
