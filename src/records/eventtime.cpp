#include "records/eventtime.h"

#include <charconv>
#include <chrono>

#include "common/utctime.h"

// Written by hand and not with the library's parser of times, since each event has one or two, and
// since sources write so many forms that one loose reading serves better than a list of formats.

namespace zel {

namespace {

using std::chrono::milliseconds;
using Point = std::chrono::sys_time<milliseconds>;

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes parts off the front of a text.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    // Exactly so many digits.
    bool Digits(std::size_t count, int* number) {
        *number = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (i >= text_.size() || !IsDigit(text_[i]))
                return false;
            *number = *number * 10 + (text_[i] - '0');
        }
        text_.remove_prefix(count);
        return true;
    }
    bool OneOf(std::string_view characters) {
        const bool found = !text_.empty() && characters.find(text_.front()) != characters.npos;
        if (found)
            text_.remove_prefix(1);
        return found;
    }
    // The digits behind a point, as milliseconds; true also where there are none.
    bool Fraction(int* thousandths, bool* isExact) {
        *thousandths = 0;
        if (!OneOf(".,"))
            return true;
        int place = 100;
        const std::string_view before = text_;
        for (; !text_.empty() && IsDigit(text_.front()); text_.remove_prefix(1), place /= 10) {
            *thousandths += place * (text_.front() - '0');
            *isExact = *isExact && (place > 0 || text_.front() == '0');
        }
        return text_.size() < before.size();
    }
    // Z, an offset, or nothing.
    bool Zone(int* minutes) {
        *minutes = 0;
        if (text_.empty() || OneOf("Zz"))
            return true;
        const int sign = text_.front() == '-' ? -1 : 1;
        int hours = 0, rest = 0;
        if (!OneOf("+-") || !Digits(2, &hours))
            return false;
        OneOf(":");
        if (!text_.empty() && !Digits(2, &rest))
            return false;
        *minutes = sign * (hours * 60 + rest);
        return hours < 24 && rest < 60;
    }
    bool AtEnd() const { return text_.empty(); }

private:
    std::string_view text_;
};

std::optional<EventTime> TimeOf(Point point, bool isExact) {
    using namespace std::chrono;
    constexpr Point first = sys_days(year(1601) / 1 / 1);
    constexpr Point end = sys_days(year(10000) / 1 / 1);
    if (point < first || point >= end)
        return std::nullopt;
    return EventTime{wm::FormatUtc(wm::ToSystemTime(point)), isExact};
}

std::optional<Point> PointIn(std::string_view text, bool* isExact) {
    using namespace std::chrono;
    Scanner scan(text);
    int y = 0, mon = 0, d = 0, h = 0, min = 0, s = 0, ms = 0, zone = 0;
    const bool hasForm = scan.Digits(4, &y) && scan.OneOf("-/") && scan.Digits(2, &mon) &&
                         scan.OneOf("-/") && scan.Digits(2, &d) && scan.OneOf("T t") &&
                         scan.Digits(2, &h) && scan.OneOf(":") && scan.Digits(2, &min) &&
                         scan.OneOf(":") && scan.Digits(2, &s) && scan.Fraction(&ms, isExact) &&
                         scan.Zone(&zone) && scan.AtEnd();
    const year_month_day date{year(y), month(static_cast<unsigned>(mon)),
                              day(static_cast<unsigned>(d))};
    if (!hasForm || !date.ok() || h > 23 || min > 59 || s > 59)
        return std::nullopt;
    return sys_days(date) + hours(h) + minutes(min - zone) + seconds(s) + milliseconds(ms);
}

}  // namespace

std::optional<EventTime> ParseEventTime(std::string_view text) {
    bool isExact = true;
    const auto point = PointIn(text, &isExact);
    return point ? TimeOf(*point, isExact) : std::nullopt;
}

std::optional<std::int64_t> MillisecondsIn(std::string_view text) {
    bool isExact = true;
    const auto point = PointIn(text, &isExact);
    return point ? std::optional(point->time_since_epoch().count()) : std::nullopt;
}

std::optional<EventTime> EventTimeOfMilliseconds(std::int64_t number) {
    constexpr std::int64_t most = 400'000'000'000'000;  // far beyond all years that count
    if (number < -most || number > most)
        return std::nullopt;
    return TimeOf(Point(milliseconds(number)), true);
}

std::optional<EventTime> EventTimeOfSeconds(std::string_view text) {
    std::int64_t whole = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), whole);
    constexpr std::int64_t most = 400'000'000'000;
    if (failure != std::errc() || whole < -most || whole > most)
        return std::nullopt;
    Scanner rest(text.substr(static_cast<std::size_t>(end - text.data())));
    int thousandths = 0;
    bool isExact = true;
    if (!rest.Fraction(&thousandths, &isExact) || !rest.AtEnd())
        return std::nullopt;
    return TimeOf(Point(milliseconds(whole * 1000 + thousandths)), isExact);
}

}  // namespace zel
