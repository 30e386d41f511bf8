#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "zel/query/newestwindows.h"
#include "zel/results/countsink.h"
#include "zel/results/orderedsink.h"
#include "zel/results/timeof.h"

namespace zel {
namespace {

class Gathered final : public EventSink {
public:
    bool Take(const FoundEvent& event) override {
        texts.push_back(std::string(event.text) + std::string(event.key));
        return true;
    }
    bool Finish() override { return isFinished = true; }

    std::vector<std::string> texts;
    bool isFinished = false;
};

std::string EventAt(unsigned time, std::size_t number) {
    return R"({"seq_num":)" + std::to_string(number) +
           R"(,"begin_time":{"value":"2026-11-12T10:00:00.)" + std::to_string(time) + R"(Z"}})";
}

TEST(TimeOf, FindsTheTimeOfTheEventItselfAlone) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"begin_time":{"value":"T"}})", "T"},
        {R"({"x":"begin_time","begin_time" : { "operator":{"value":"U"}, "value" : "T" } })", "T"},
        {R"({"a":{"begin_time":{"value":"U"}},"b":["begin_time",{"value":"U"}]})", ""},
        {R"({"a":"\"begin_time\":{\"value\":\"U\"}","begin_time":{"value":"T"}})", "T"},
        {R"({"begin_time":7,"end_time":{"value":"U"}})", ""},
        {R"({"begin_time":{"value":"cut)", ""},
        {R"({"begin_time":{"value")", ""},
        {"\"", ""},
        {"", ""},
    };
    for (const auto& [event, time] : rows)
        EXPECT_EQ(TimeOf(event), time) << event;
}

// Against a sort of all that was given, with so little memory that most of it waits in a file.
TEST(OrderedSink, OrdersAndCutsWhateverTheMemory) {
    std::mt19937 random(7);
    const EventOrder orders[] = {{-1, false, false}, {-1, true, true},   {7, true, true},
                                 {7, true, false},   {7, false, false},  {900, true, true},
                                 {900, true, false}, {900, false, false}};
    for (const EventOrder& order : orders)
        for (const std::size_t memory : {std::size_t{9000}, OrderedSink::memoryBytes})
            for (const std::size_t count : {0U, 5U, 3000U}) {
                std::vector<std::pair<unsigned, std::string>> given;
                Gathered gathered;
                OrderedSink sink(gathered, order, memory);
                for (std::size_t i = 0; i < count; ++i) {
                    const unsigned time = 100 + random() % 500;
                    given.emplace_back(time, EventAt(time, i));
                    ASSERT_TRUE(!sink.MayMatter(given.back().second) ||
                                sink.Take({given.back().second, "k"}));
                }
                std::stable_sort(given.begin(), given.end(),
                                 [](const auto& a, const auto& b) { return a.first < b.first; });
                const std::size_t most =
                    order.most < 0 ? count : std::min<std::size_t>(order.most, count);
                given = order.keepsNewest ? decltype(given)(given.end() - most, given.end())
                                          : decltype(given)(given.begin(), given.begin() + most);
                if (order.newestFirst)
                    std::reverse(given.begin(), given.end());
                ASSERT_TRUE(sink.Finish() && gathered.isFinished);
                ASSERT_EQ(gathered.texts.size(), given.size());
                for (std::size_t i = 0; i < given.size(); ++i)
                    ASSERT_EQ(gathered.texts[i], given[i].second + "k") << i;
                EXPECT_EQ(sink.HasMore(), most < count);
            }
}

TEST(OrderedSink, TellsWhereItsFileCannotBeMade) {
    ::setenv("TMPDIR", "/nosuch", 1);
    Gathered gathered;
    OrderedSink sink(gathered, {}, 1000);
    bool isTaken = true;
    for (std::size_t i = 0; i < 5000 && isTaken; ++i)
        isTaken = sink.Take({EventAt(100, i), ""});
    EXPECT_TRUE(!isTaken || !sink.Finish());
    EXPECT_EQ(sink.Problem(),
              "the answer can't be put in order: /nosuch: no temporary file can be "
              "made: No such file or directory");
}

TEST(CountSink, TellsWhatItsGroupsDoNotHold) {
    std::string problem;
    Output output;
    CountSink sink(output, {}, {*ParseFields("seq", &problem), {}, -1}, 2);
    for (const std::size_t number : {1U, 2U, 3U, 1U, 4U})
        EXPECT_TRUE(sink.Take({EventAt(100, number), ""}));
    EXPECT_EQ(sink.Ungrouped(), 2U);
}

// From the newest back, without a gap and without an overlap.
TEST(NewestWindows, AreTogetherTheWhole) {
    const auto range = [](const std::string& more) {
        return web::json::value::parse(R"({"event_query":{"events":[{"begin_time":{"value":)"
                                       R"("1601-01-01T00:00:00.000Z"})" +
                                       more + "}]}}");
    };
    const auto ranges = [](const web::json::value& question, std::uint64_t found) {
        NewestWindows windows(question, 20, "20261112001");
        web::json::value document;
        std::string all;
        while (windows.Next(found, &document)) {
            const web::json::value& event = document.at("event_query").at("events").at(0);
            all += event.at("begin_time").at("value").as_string().substr(0, 16) + " ";
            all += event.has_field("end_time") ? event.at("end_time").at("value").as_string() : "-";
            all += "; ";
        }
        return all;
    };
    EXPECT_EQ(ranges(range(""), 0),
              "2026-11-12T00:00 -; 1601-01-01T00:00 2026-11-11T23:59:59.999Z; ");
    EXPECT_EQ(ranges(range(""), 5),
              "2026-11-12T00:00 -; 2026-11-02T00:00 2026-11-11T23:59:59.999Z; "
              "1601-01-01T00:00 2026-11-01T23:59:59.999Z; ");
    EXPECT_EQ(ranges(range(R"(,"end_time":{"value":"2020-01-03T12:00:00.000Z"})"), 0),
              "2020-01-02T12:00 2020-01-03T12:00:00.000Z; "
              "1601-01-01T00:00 2020-01-02T11:59:59.999Z; ");
    const char* const whole = "1601-01-01T00:00 -; ";
    EXPECT_EQ(ranges(range(R"(,"seq_num":1)"), 0), whole);
    EXPECT_EQ(ranges(range(R"(},{"begin_time":{"value":"2000-01-01T00:00:00.000Z"})"), 0), whole);
}

}  // namespace
}  // namespace zel
