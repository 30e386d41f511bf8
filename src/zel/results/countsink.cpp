#include "zel/results/countsink.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "records/eventtime.h"
#include "zel/results/timeof.h"
#include "zel/terminal/messages.h"

// Groups are known by their values, one behind the other with their lengths, so that no two of them
// are taken for one. How many there can be is for strangers to say, who write what is counted; so
// their number is bounded, and what falls outside is counted all the same.

namespace zel {

namespace {

using std::chrono::milliseconds;
using Point = ZoneTime::Point;
using Kind = FieldValue::Kind;

constexpr milliseconds day = std::chrono::hours(24);

std::string NameOf(const std::optional<Point>& begin, const std::vector<FieldValue>& values) {
    std::string name = begin ? std::to_string(begin->time_since_epoch().count()) : "";
    for (const FieldValue& value : values)
        name.append(value.kind == Kind::none ? "-" : std::to_string(value.text.size()))
            .append(":")
            .append(value.text);
    return name;
}

Field NumberField(const char* name) {
    return {name, nullptr, {}, ColumnType::number};
}

}  // namespace

std::optional<milliseconds> TimeSteps::ParseWidth(std::string_view text) {
    constexpr std::pair<char, milliseconds> units[] = {{'s', std::chrono::seconds(1)},
                                                       {'m', std::chrono::minutes(1)},
                                                       {'h', std::chrono::hours(1)},
                                                       {'d', day},
                                                       {'w', 7 * day}};
    constexpr int most = 100000;
    int count = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, count);
    if (parsed.ec != std::errc() || parsed.ptr + 1 != end || count < 1 || count > most)
        return std::nullopt;
    for (const auto& [unit, width] : units)
        if (unit == *parsed.ptr)
            return count * width;
    return std::nullopt;
}

bool TimeSteps::IsOfDays() const {
    return width_ >= day;
}

// The first of all weeks began on a Monday.
Point TimeSteps::Floor(Point clock) const {
    constexpr milliseconds thursday = 3 * day;  // 1970 began on one
    const bool isOfWeeks = width_ % (7 * day) == milliseconds(0);
    const milliseconds shift = isOfWeeks ? thursday : milliseconds(0);
    const milliseconds at = clock.time_since_epoch() + shift;
    milliseconds rest = at % width_;
    if (rest < milliseconds(0))
        rest += width_;
    return Point(at - rest - shift);
}

// Clocks that are put back show an hour twice, which are two; a day is one whatever its length.
Point TimeSteps::BeginOf(Point moment) const {
    const Point clock = zone_.ClockAt(moment);
    return IsOfDays() ? zone_.MomentOf(Floor(clock)) : moment - (clock - Floor(clock));
}

Point TimeSteps::Next(Point begin) const {
    return IsOfDays() ? zone_.MomentOf(Floor(zone_.ClockAt(begin) + width_)) : begin + width_;
}

CountSink::CountSink(Output& output, FormChoice choice, CountPlan plan, std::size_t groups)
    : output_(output),
      choice_(std::move(choice)),
      plan_(std::move(plan)),
      steps_(plan_.step ? std::optional<TimeSteps>(std::in_place, *plan_.step, choice_.zone)
                        : std::nullopt),
      most_(groups),
      reader_(plan_.by, choice_.zone) {}

std::optional<Point> CountSink::StepOf(std::string_view text) const {
    const auto time = steps_ ? MillisecondsIn(TimeOf(text)) : std::nullopt;
    return time ? std::optional(steps_->BeginOf(Point(milliseconds(*time)))) : std::nullopt;
}

bool CountSink::Take(const FoundEvent& event) {
    const std::optional<Point> begin = StepOf(event.text);
    static const std::vector<FieldValue> none;
    const std::vector<FieldValue>& values = plan_.by.empty() ? none : reader_.Read(event);
    std::string name = NameOf(begin, values);
    const auto found = groups_.find(name);
    if (found != groups_.end()) {
        ++found->second.count;
    } else if (groups_.size() < most_ && bytes_ < mostBytes) {
        bytes_ += 2 * name.size();
        groups_.emplace(std::move(name), Group{begin, values, 1});
    } else {
        ++ungrouped_;
    }
    return !Interrupted();
}

std::vector<CountSink::Group> CountSink::Sorted() {
    std::vector<Group> groups;
    for (auto& [name, group] : groups_)
        groups.push_back(std::move(group));
    groups_.clear();
    const auto texts = [](const Group& group) {
        std::vector<std::string_view> all;
        for (const FieldValue& value : group.values)
            all.push_back(value.text);
        return all;
    };
    std::sort(groups.begin(), groups.end(), [&](const Group& a, const Group& b) {
        if (a.begin != b.begin)
            return a.begin < b.begin;
        return a.count != b.count ? a.count > b.count : texts(a) < texts(b);
    });
    return groups;
}

void CountSink::FillGaps(std::vector<Group>* groups) const {
    constexpr std::size_t mostSteps = 10000;
    std::vector<Group> filled;
    for (Group& group : *groups) {
        while (!filled.empty() && filled.back().begin && group.begin &&
               steps_->Next(*filled.back().begin) < *group.begin) {
            filled.push_back({steps_->Next(*filled.back().begin), {}, 0});
            if (filled.size() > mostSteps)
                return;
        }
        filled.push_back(group);
    }
    *groups = std::move(filled);
}

bool CountSink::Finish() {
    std::vector<Group> groups = Sorted();
    const bool isOfTimeAlone = steps_ && plan_.by.empty();
    if (isOfTimeAlone)
        FillGaps(&groups);
    if (plan_.most >= 0 && groups.size() > static_cast<std::size_t>(plan_.most)) {
        leftOut_ = groups.size() - static_cast<std::size_t>(plan_.most);
        groups.resize(static_cast<std::size_t>(plan_.most));
    }
    return isOfTimeAlone && choice_.name == "table" ? PrintBars(groups) : PrintRows(groups);
}

std::string CountSink::Shown(const Group& group) const {
    if (!group.begin)
        return "";
    const auto time = EventTimeOfMilliseconds(group.begin->time_since_epoch().count());
    return time ? choice_.zone.Shown(time->text) : "";
}

bool CountSink::PrintRows(const std::vector<Group>& groups) {
    FormChoice choice = choice_;
    choice.fields = plan_.by;
    if (steps_)
        choice.fields.insert(choice.fields.begin(), {"time", nullptr, {}, ColumnType::time});
    choice.fields.push_back(NumberField("count"));
    const auto rows = MakeRowForm(std::move(choice));
    bool isFirst = true;
    for (const Group& group : groups) {
        std::vector<FieldValue> values = group.values;
        if (steps_)
            values.insert(values.begin(), {group.begin ? Kind::text : Kind::none, Shown(group)});
        values.push_back({Kind::number, std::to_string(group.count)});
        if (!output_.Write(rows->Row(values, std::exchange(isFirst, false))))
            return false;
    }
    return output_.Write(rows->End(isFirst));
}

// The longest bar takes what the line has left.
bool CountSink::PrintBars(const std::vector<Group>& groups) {
    constexpr std::size_t unknownWidth = 100, narrowest = 10, gaps = 2;
    std::uint64_t largest = 1;
    for (const Group& group : groups)
        largest = std::max(largest, group.count);
    const std::size_t timeWidth = choice_.zone.IsUtc() ? 24 : 29;
    const std::size_t countWidth = std::to_string(largest).size();
    const std::size_t columns = choice_.columns != 0 ? choice_.columns : unknownWidth;
    const std::size_t taken = timeWidth + countWidth + gaps;
    const std::size_t width = columns > taken + narrowest ? columns - taken : narrowest;
    for (const Group& group : groups) {
        const std::string count = std::to_string(group.count);
        std::string line = Shown(group);
        line.append(timeWidth - std::min(timeWidth, line.size()) + 1, ' ');
        line.append(countWidth - count.size(), ' ').append(count);
        const double share = static_cast<double>(group.count) / static_cast<double>(largest);
        const auto length =
            static_cast<std::size_t>(std::lround(share * static_cast<double>(width)));
        for (std::size_t i = 0; i < std::max<std::size_t>(length, group.count != 0); ++i)
            line += i == 0 ? " \u2588" : "\u2588";
        if (!output_.Write(line.append("\n")))
            return false;
    }
    return true;
}

}  // namespace zel
