#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zel/results/eventsink.h"
#include "zel/results/fieldforms.h"
#include "zel/results/fields.h"
#include "zel/terminal/output.h"

namespace zel {

// Lengths of time, one behind the other, as clocks of a zone show them: hours begin with the hour,
// days at midnight, weeks on Monday.
class TimeSteps {
public:
    TimeSteps(std::chrono::milliseconds width, const ZoneTime& zone) : width_(width), zone_(zone) {}
    // "15m": a number and one of s, m, h, d, w. None for anything else.
    static std::optional<std::chrono::milliseconds> ParseWidth(std::string_view text);

    // Where the step begins that holds the moment, and where the one behind a beginning does.
    ZoneTime::Point BeginOf(ZoneTime::Point moment) const;
    ZoneTime::Point Next(ZoneTime::Point begin) const;

private:
    bool IsOfDays() const;
    ZoneTime::Point Floor(ZoneTime::Point clock) const;

    const std::chrono::milliseconds width_;
    const ZoneTime zone_;
};

// What is counted: events by what their fields say, by the steps of time that they lie in, or both.
struct CountPlan {
    std::vector<Field> by;
    std::optional<std::chrono::milliseconds> step;
    std::int64_t most = -1;  // rows to print, those that count most; negative: all
};

// Counts an answer's events and prints one row for each group at its end: in the order of time,
// then the largest first. Steps of time that have no events are rows, too, where nothing else is
// asked for, as long as they are not too many; in a table these are drawn as bars. Keeps so many
// groups and no more, and tells how many events are in none of them. `output` must outlive it.
class CountSink final : public EventSink {
public:
    static constexpr std::size_t mostGroups = 100000;
    static constexpr std::size_t mostBytes = std::size_t{64} << 20;  // of their values

    CountSink(Output& output, FormChoice choice, CountPlan plan, std::size_t groups = mostGroups);

    bool Take(const FoundEvent& event) override;
    bool Finish() override;
    // Events that are in no row since there were too many groups.
    std::uint64_t Ungrouped() const noexcept { return ungrouped_; }
    // Groups that `most` keeps from being printed.
    std::size_t RowsLeftOut() const noexcept { return leftOut_; }

private:
    struct Group {
        std::optional<ZoneTime::Point> begin;  // of the step; none for events without a time
        std::vector<FieldValue> values;
        std::uint64_t count = 0;
    };

    std::optional<ZoneTime::Point> StepOf(std::string_view text) const;
    std::vector<Group> Sorted();
    void FillGaps(std::vector<Group>* groups) const;
    bool PrintRows(const std::vector<Group>& groups);
    bool PrintBars(const std::vector<Group>& groups);
    std::string Shown(const Group& group) const;

    Output& output_;
    const FormChoice choice_;
    const CountPlan plan_;
    const std::optional<TimeSteps> steps_;
    const std::size_t most_;
    FieldReader reader_;
    std::unordered_map<std::string, Group> groups_;
    std::size_t bytes_ = 0, leftOut_ = 0;
    std::uint64_t ungrouped_ = 0;
};

}  // namespace zel
