#include "records/timearg.h"

#include <optional>

#include "common/utctime.h"

// Each form is read from left to right by a cursor that remembers where it stopped, which is where
// the caret of a message goes. Everything is UTC; results lie in the years 1601 to 9999, where the
// order of the texts is that of the times.

namespace zel {

namespace {

using namespace std::chrono;
using Point = sys_time<milliseconds>;

// What the store's form can say in order.
constexpr Point firstPoint = sys_days(year(1601) / January / 1);
constexpr Point lastPoint = sys_days(year(10000) / January / 1) - milliseconds(1);

// Reads a time from left to right and remembers where it does not go on.
class Cursor {
public:
    explicit Cursor(const std::string& text) : text_(text) {}

    bool AtEnd() const { return at_ == text_.size(); }
    std::size_t Column() const { return at_; }
    char Peek() const { return AtEnd() ? '\0' : text_[at_]; }
    bool Take(char c) {
        if (Peek() != c)
            return false;
        ++at_;
        return true;
    }
    // Stops at the first that is no digit, where the caret then goes.
    std::optional<int> Digits(int count) {
        int number = 0;
        for (int i = 0; i < count; ++i, ++at_) {
            if (Peek() < '0' || Peek() > '9')
                return std::nullopt;
            number = number * 10 + (Peek() - '0');
        }
        return number;
    }
    // All digits that there are, as a fraction cut to milliseconds.
    std::optional<int> Fraction() {
        int milliseconds = 0;
        int digits = 0;
        for (; Peek() >= '0' && Peek() <= '9'; ++at_, ++digits)
            if (digits < 3)
                milliseconds = milliseconds * 10 + (Peek() - '0');
        for (int i = digits; i < 3; ++i)
            milliseconds *= 10;
        return digits > 0 ? std::optional(milliseconds) : std::nullopt;
    }

private:
    const std::string& text_;
    std::size_t at_ = 0;
};

TimeArgument Good(Point point) {
    return {true, wm::FormatUtc(wm::ToSystemTime(point)), "", "", 0, false};
}
TimeArgument GoodDay(Point midnight) {
    TimeArgument day = Good(midnight);
    day.isOfAnyZone = true;
    day.endOfDay = Good(midnight + days(1) - milliseconds(1)).text;
    return day;
}
TimeArgument Bad(const char* error, std::size_t column) {
    return {false, "", "", error, column, false};
}

// The bound keeps the sum within what milliseconds of 64 bits hold, so no distance wraps around.
TimeArgument ParseDistance(const std::string& argument, Point now) {
    constexpr long long mostUnits = 1000000000;
    long long count = 0;
    std::size_t at = 1;
    for (; at < argument.size() && argument[at] >= '0' && argument[at] <= '9'; ++at) {
        count = count * 10 + (argument[at] - '0');
        if (count > mostUnits)
            return Bad("the distance is too large", 1);
    }
    if (at == 1)
        return Bad("a number is expected behind the minus sign", at);
    if (at + 1 != argument.size())
        return Bad("one of s, m, h, d, w is expected behind the number", at);
    const std::size_t unit = std::string("smhdw").find(argument[at]);
    if (unit == std::string::npos)
        return Bad("one of s, m, h, d, w is expected behind the number", at);
    constexpr long long unitSeconds[] = {1, 60, 3600, 86400, 604800};
    const Point point = now - seconds(count * unitSeconds[unit]);
    return Good(point < firstPoint ? firstPoint : point);
}

// Nothing behind the time means UTC, as everything here does; the local zone is never asked for,
// since a command would then mean something else on another machine.
std::optional<seconds> ParseOffset(Cursor& in) {
    if (in.AtEnd() || in.Take('Z') || in.Take('z'))
        return seconds(0);
    const bool east = in.Peek() == '+';
    if (!in.Take('+') && !in.Take('-'))
        return std::nullopt;
    const auto offsetHours = in.Digits(2);
    if (!offsetHours || *offsetHours > 23 || !in.Take(':'))
        return std::nullopt;
    const auto offsetMinutes = in.Digits(2);
    if (!offsetMinutes || *offsetMinutes > 59)
        return std::nullopt;
    const seconds offset = hours(*offsetHours) + minutes(*offsetMinutes);
    return east ? offset : -offset;
}

// A second 60 is refused: the store's form has none, and times have to be ordered as texts.
TimeArgument ParseClock(Cursor& in, Point date) {
    if (!in.Take('T') && !in.Take('t') && !in.Take(' '))
        return Bad("T or the end is expected behind the date", in.Column());
    const auto hour = in.Digits(2);
    if (!hour || *hour > 23 || !in.Take(':'))
        return Bad("a time HH:MM:SS is expected", in.Column());
    const auto minute = in.Digits(2);
    if (!minute || *minute > 59)
        return Bad("minutes from 00 to 59 are expected", in.Column());
    const bool hasSeconds = in.Take(':');
    const auto second = hasSeconds ? in.Digits(2) : 0;
    if (!second || *second > 59)
        return Bad("seconds from 00 to 59 are expected", in.Column());
    const auto fraction = hasSeconds && in.Take('.') ? in.Fraction() : 0;
    if (!fraction)
        return Bad("digits are expected behind the point", in.Column());
    const std::size_t offsetAt = in.Column();
    const bool hasOffset = !in.AtEnd();
    const auto offset = ParseOffset(in);
    if (!offset)
        return Bad("Z or an offset such as +02:00 is expected", in.Column());
    if (!in.AtEnd())
        return Bad("nothing is expected behind the time", in.Column());
    const Point point = date + hours(*hour) + minutes(*minute) + seconds(*second) +
                        milliseconds(*fraction) - *offset;
    if (point < firstPoint || point > lastPoint)
        return Bad("the offset leads out of the years 1601 to 9999", offsetAt);
    TimeArgument time = Good(point);
    time.isOfAnyZone = !hasOffset;
    return time;
}

TimeArgument ParseDate(const std::string& argument) {
    Cursor in(argument);
    const auto yearNumber = in.Digits(4);
    if (!yearNumber || !in.Take('-'))
        return Bad("a time such as 2026-11-12T10:00:00Z, today or -2h is expected", in.Column());
    const auto monthNumber = in.Digits(2);
    if (!monthNumber || !in.Take('-'))
        return Bad("a date YYYY-MM-DD is expected", in.Column());
    const auto dayNumber = in.Digits(2);
    if (!dayNumber)
        return Bad("a date YYYY-MM-DD is expected", in.Column());
    const year_month_day date(year(*yearNumber), month(static_cast<unsigned>(*monthNumber)),
                              day(static_cast<unsigned>(*dayNumber)));
    if (!date.ok() || *yearNumber < 1601)
        return Bad("there is no such date", 0);
    const Point midnight = sys_days(date);
    return in.AtEnd() ? GoodDay(midnight) : ParseClock(in, midnight);
}

}  // namespace

TimeArgument ParseTimeArgument(const std::string& argument, Point now) {
    if (argument == "now")
        return Good(now);
    const Point today = floor<days>(now);
    if (argument == "today")
        return GoodDay(today);
    if (argument == "yesterday")
        return GoodDay(today - days(1));
    if (argument.starts_with('-'))
        return ParseDistance(argument, now);
    return ParseDate(argument);
}

}  // namespace zel
