#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/web/countcache.h"
#include "agent/web/countkey.h"
#include "agent/web/counttimes.h"
#include "agent/web/countvalues.h"

namespace zel {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(CountKeyTest, ReadsTheBeginOfKeysAsAQueryDoes) {
    const std::string start = "p<begin_time>2026-11-12T10:00:01.234Z<sequence>0000000012";
    const struct {
        std::string key;
        std::string_view object, action;
        std::int64_t time;
    } rows[] = {
        {start + "<object_type>file<action>create", "file", "create", 1794477601234},
        {start + "<object_type>file<action>create<target_path_name>C:\\a<object_type>x", "x",
         "create", 1794477601234},
        {start + "<action>create<object_type>file", "file", "create", 1794477601234},
        {"p<begin_time>2026-11-12<sequence>0000000012<object_type>a<action>b", "a", "b", 0},
        {"p<begin_time>nonsense<sequence>x<object_type>a<action>b", "a", "b", 0},
        {"p", "", "", 0},
    };
    EventKeyReader reader;
    for (const auto& row : rows) {
        const EventKeyHead head = reader.Read(row.key);
        EXPECT_EQ(head.object, row.object) << row.key;
        EXPECT_EQ(head.action, row.action) << row.key;
        EXPECT_EQ(head.time, row.time) << row.key;
    }
    const EventPlace place = EventKeyReader::PlaceOf(reader.Read(rows[0].key), rows[0].key);
    EXPECT_EQ(ReadEventPlace(ToText(place)), place);
    for (const char* const bad : {"", "1", "1.2", "1.2.", "1.2.3x", "1.-2.3", "1.2.3.4"})
        EXPECT_FALSE(ReadEventPlace(bad)) << bad;
}

// Nothing is lost where steps become wider, also ahead of 1970.
TEST(TimeCountsTest, CountsStayInBounds) {
    TimeCounts counts(8);
    for (int i = -500; i < 500; ++i)
        counts.Add(i * std::int64_t{3600000}, i % 2 == 0 ? "even" : "odd");
    counts.FitInto(5);
    std::uint64_t sum = 0;
    for (const auto& [begin, ofNames] : counts.Steps()) {
        EXPECT_EQ(begin % counts.Width(), 0);
        for (const std::uint64_t count : ofNames)
            sum += count;
    }
    EXPECT_EQ(sum, 1000u);
    EXPECT_LE(counts.Steps().size(), 6u);
    EXPECT_EQ(counts.Last() - counts.First(), 999 * std::int64_t{3600000});
    for (int i = 0; i < 1000; ++i)
        counts.Add(0, "name" + std::to_string(i));
    EXPECT_LE(counts.Names().size(), 33u);
}

TEST(ValueCountsTest, CaseDoesNotMatterAndTooManyAreOthers) {
    ValueCounts counts(3);
    for (const char* const value : {"Cmd.exe", "cmd.exe", "b", "c", "CMD.EXE", "d"})
        counts.Add(value);
    std::uint64_t others = 0;
    std::vector<std::pair<std::string, std::uint64_t>> told;
    for (const auto& each : counts.Most(1, &others))
        told.emplace_back(each.value, each.count);
    EXPECT_THAT(told, ElementsAre(Pair("Cmd.exe", 3)));
    EXPECT_EQ(others, 3u);
}

class Changes final : public IStoreChanges {
public:
    std::string Mark() override { return "m"; }
    bool Holds(const std::string&, const EventSpan& range, bool) override {
        return !range.Holds(changed);
    }
    std::int64_t changed = 1000;
};

TEST(CountCacheTest, GivesWhatHoldsAndForgetsWhatIsOldest) {
    Changes changes;
    CountCache cache(3000);
    const auto what = std::make_shared<const int>(1);
    for (const int i : {1, 2})
        cache.Keep(std::to_string(i), {"m", {i * 10, i * 10}, false, what, 1000});
    EXPECT_EQ(cache.Find("1", changes), what);
    cache.Keep("3", {"m", {30, 30}, false, what, 1000});
    cache.Keep("4", {"", {40, 40}, false, what, 1});  // without a mark
    EXPECT_EQ(cache.Find("2", changes), nullptr);
    EXPECT_EQ(cache.Find("4", changes), nullptr);
    EXPECT_EQ(cache.Find("3", changes), what);
    changes.changed = 10;
    EXPECT_EQ(cache.Find("1", changes), nullptr);
    changes.changed = 1000;
    EXPECT_EQ(cache.Find("1", changes), nullptr);
}

}  // namespace
}  // namespace zel
