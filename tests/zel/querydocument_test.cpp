#include "zel/query/querydocument.h"

#include <gmock/gmock.h>

#include <functional>

#include "zel/query/documentcheck.h"
#include "zel/query/queryplan.h"

namespace zel {
namespace {

using testing::HasSubstr;
using web::json::value;
using Fill = std::function<void(QueryOptions&)>;

const std::string hash(64, 'a');

// The document, or what is wrong with the options.
value TryBuild(const Fill& fill, std::string* problem) {
    QueryOptions options;
    fill(options);
    value document;
    const bool built = BuildDocument(options, &document, problem);
    EXPECT_EQ(built, problem->empty()) << *problem;
    return document;
}

// It must be one that runs as it stands.
value Build(const Fill& fill) {
    std::string problem;
    value edited;
    EXPECT_TRUE(ParseDocument(PrettyDocument(TryBuild(fill, &problem)), &edited, &problem));
    EXPECT_EQ(problem, "");
    const DocumentFindings found = CheckDocument(edited);
    EXPECT_THAT(found.errors, testing::IsEmpty());
    EXPECT_THAT(found.warnings, testing::IsEmpty());
    return edited;
}

TEST(QueryDocument, AlternativesInOtherFieldsBecomeSubQueries) {
    const struct {
        Fill fill;
        std::size_t subQueries;
        bool distinct;
    } rows[] = {
        {[](QueryOptions&) {}, 1, false},
        {[](QueryOptions& o) { o.targetPaths = {"a"}; }, 8, false},
        {[](QueryOptions& o) { o.hashes = {hash}; }, 5, true},
        {[](QueryOptions& o) {
             o.ips = {"10.*"};
             o.hashes = {hash};
         },
         2, true},
        {[](QueryOptions& o) {
             o.objects = {"file", "reg_key"};
             o.patterns = {".*"};
             o.hashes = {hash};
         },
         3, true},
    };
    for (const auto& row : rows) {
        value document = Build(row.fill);
        EXPECT_EQ(document["event_query"]["events"].size(), row.subQueries);
        document["event_query"]["limit_result_count"] = value(10);
        const QueryPlan plan = PlanQuery(document);
        EXPECT_EQ(plan.distinct, row.distinct);
        EXPECT_EQ(plan.printLimit, row.subQueries > 1 ? 10 : -1);
        // What comes twice counts twice in the store.
        const std::string limit = std::to_string(row.distinct ? row.subQueries * 10 : 10);
        EXPECT_THAT(plan.document, HasSubstr("\"limit_result_count\":" + limit));
    }
}

TEST(QueryDocument, RefusesAndPoints) {
    const struct {
        Fill fill;
        const char* words;
    } rows[] = {
        {[](QueryOptions& o) { o.actions = {"fly"}; }, "--action: unknown action \"fly\""},
        {[](QueryOptions& o) { o.objects = {"fil"}; }, "did you mean \"file\"?\n  fil\n  ^"},
        {[](QueryOptions& o) { o.until = "1601-01-01T00:00:00+00:01"; }, "1601 to 9999"},
        {[](QueryOptions& o) { o.since = "2020-01-02", o.until = "2020-01-01"; }, "lies before"},
        {[](QueryOptions& o) { o.limit = "0"; }, "--limit: a number from 1"},
        {[](QueryOptions& o) { o.limit = "9999999999"; }, "--limit: a number from 1"},
        {[](QueryOptions& o) { o.typeIds = {"8001x"}; }, "--type-id: a number"},
        {[](QueryOptions& o) { o.hashes = {"12g4"}; }, "  12g4\n    ^"},
        {[](QueryOptions& o) { o.hashes = {std::string(32, 'a')}; }, "SHA-2"},
        {[](QueryOptions& o) { o.ips = {"10.0.0.x"}; }, "  10.0.0.x\n         ^"},
        {[](QueryOptions& o) { o.targetPaths = {"\xff"}; }, "--target-path: not UTF-8\n  \\xff"},
        {[](QueryOptions& o) { o.ips = {"::1"}, o.objects = {"file"}; }, "no event has all"},
        {[](QueryOptions& o) { o.patterns = {"a"}, o.targetPaths = {"b"}; }, "exclude each other"},
        {[](QueryOptions& o) { o.byReceive = true, o.actions = {"create"}; }, "--by receive"},
        {[](QueryOptions& o) { o.byReceive = true, o.enrichments = true; }, "--by receive"},
        {[](QueryOptions& o) { o.showCursor = true; }, "--show-cursor needs"},
        {[](QueryOptions& o) { o.byReceive = true, o.afterCursor = "2020-01-01T00:00:00.000Z"; },
         "--after-cursor: a position"},
    };
    for (const auto& row : rows) {
        std::string problem;
        TryBuild(row.fill, &problem);
        EXPECT_THAT(problem, HasSubstr(row.words));
    }
}

}  // namespace
}  // namespace zel
