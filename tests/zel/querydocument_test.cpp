#include "zel/query/querydocument.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <functional>

#include "zel/query/documentcheck.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/schema/eventquery.h"

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
    } rows[] = {
        {[](QueryOptions&) {}, 1},
        {[](QueryOptions& o) { o.targetPaths = {"a"}; }, 8},
        {[](QueryOptions& o) { o.hashes = {hash}; }, 5},
        {[](QueryOptions& o) { o.ips = {"10.*"}, o.hashes = {hash}; }, 2},
        {[](QueryOptions& o) {
             o.objects = {"file", "reg_key"}, o.patterns = {".*"}, o.hashes = {hash};
         },
         3},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Build(row.fill)["event_query"]["events"].size(), row.subQueries);
}

// What the store looks for in the rows of a registry path, as patterns for a whole path.
std::vector<boost::regex> Wanted(const Fill& fill) {
    ZEL::Schema::EventQuery query;
    query.FromJson(Build(fill));
    std::vector<boost::regex> wanted;
    for (const ZEL::Schema::Event& event : query.events) {
        ZEL::Schema::FilterMap fields;
        EXPECT_EQ(ExtractKeyFields(event, true, &ZEL::MachinePaths(), fields), ZEL::hr::ok);
        for (const auto& [value, op] : fields["target_path_name"]) {
            EXPECT_FALSE(op.caseSensitive);
            const std::string text = op.op == ZEL::Schema::operatorEquals
                                         ? ZEL::Schema::WildcardToPattern(value)
                                         : value;
            wanted.emplace_back(text, boost::regex::perl | boost::regex::icase);
        }
    }
    return wanted;
}

TEST(QueryDocument, RegistryRootsFindEveryFormOfThemselves) {
    const struct {
        const char* path;
        const char* pattern;
        std::vector<const char*> found;
        std::vector<const char*> passedOver;
    } rows[] = {
        {R"(HKLM\System\x.y)",
         R"(HKLM\\System\\x\.y)",
         {R"(HKLM\System\x.y)", R"(HKEY_LOCAL_MACHINE\SYSTEM\x.y)",
          R"(\REGISTRY\MACHINE\System\x.y)"},
         {R"(HKLM\System\xzy)", R"(HKU\System\x.y)", R"(HKLM\System\x.y\z)"}},
        {R"(HKEY_USERS*)",
         R"(HKEY_USERS.*)",
         {R"(HKU\S-1-5-18\x)", R"(HKEY_USERS\.DEFAULT)"},
         {R"(HKLM\x)"}},
        {R"(hkey_local_machine\Sys*)",
         R"(hkey_local_machine\\Sys.*)",
         {R"(HKLM\System\x)", R"(HKEY_LOCAL_MACHINE\System)"},
         {R"(HKLM)"}},
        {R"(\registry\machine\x)",
         R"(\\registry\\machine\\x)",
         {R"(HKLM\x)", R"(HKEY_LOCAL_MACHINE\x)", R"(\REGISTRY\MACHINE\x)"},
         {R"(\REGISTRY\A\x)"}},
        {R"(HKU\S-1-5-18\x)",
         R"(HKU\\S-1-5-18\\x)",
         {R"(HKU\S-1-5-18\x)", R"(HKEY_USERS\S-1-5-18\x)", R"(\REGISTRY\USER\S-1-5-18\x)"},
         {R"(HKU\S-1-5-19\x)"}},
        {R"(HKCU\x)",
         R"(HKCU\\x)",
         {R"(HKCU\x)", R"(HKEY_CURRENT_USER\x)", R"(HKU\S-1-5-21-1-2-3-500\x)",
          R"(HKEY_USERS\S-1-5-21-1-2-3-500\x)"},
         {R"(HKU\S-1-5-21-1-2-3-500_Classes\x)", R"(HKU\.DEFAULT\x)"}},
        {R"(HKCR\x)",
         R"(HKCR\\x)",
         {R"(HKCR\x)", R"(HKEY_CLASSES_ROOT\x)", R"(HKU\S-1-5-21-1-2-3-500_Classes\x)"},
         {R"(HKU\S-1-5-21-1-2-3-500\x)"}},
        {R"(HKCC\x)", R"(HKCC\\x)", {R"(HKCC\x)", R"(HKEY_CURRENT_CONFIG\x)"}, {R"(HKLM\x)"}},
    };
    for (const auto& row : rows) {
        for (const bool isPattern : {false, true}) {
            const auto wanted = Wanted([&](QueryOptions& o) {
                o.objects = {"reg_key"};
                (isPattern ? o.patterns : o.targetPaths) = {"y",
                                                            isPattern ? row.pattern : row.path};
            });
            const auto finds = [&](const std::string& path) {
                return std::any_of(wanted.begin(), wanted.end(), [&](const boost::regex& pattern) {
                    return boost::regex_match(path, pattern);
                });
            };
            for (const char* const path : row.found)
                EXPECT_TRUE(finds(path)) << row.path << " finds " << path;
            for (const char* const path : row.passedOver)
                EXPECT_FALSE(finds(path)) << row.path << " finds " << path;
            EXPECT_TRUE(finds("y"));
        }
    }
    const auto plain = [](const char* object) {
        return Build([&](QueryOptions& o) {
            o.objects = {object};
            o.targetPaths = {object == std::string("file") ? R"(HKLM\x)" : R"(HKLMx\y)"};
        });
    };
    EXPECT_THAT(plain("file").serialize(), HasSubstr("\"equals\"")) << "of files it is no root";
    EXPECT_THAT(plain("reg_key").serialize(), HasSubstr("\"equals\"")) << "a name that goes on";
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
        {[](QueryOptions& o) { o.day = "today", o.until = "today"; }, "--day takes the place"},
        {[](QueryOptions& o) { o.day = "-2h"; }, "--day: a date such as"},
        {[](QueryOptions& o) { o.limit = "9999999999"; }, "--limit: a number from 0"},
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
