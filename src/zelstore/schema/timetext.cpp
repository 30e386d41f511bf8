#include "zelstore/schema/timetext.h"

#include <boost/regex.hpp>
#include <chrono>

#include "common/trace.h"

// Times as text. The form is checked by digits, not by the calendar, so that a 39th of a month is a
// time like others as long as nobody counts with it: keys and questions compare text. Only who
// shifts a time needs the calendar, and gets the zero text for a day that there is not. Counting is
// done in milliseconds between the ends that the file times of Windows have, since stored questions
// were cut to them.

namespace ZEL::Schema {

namespace {

using namespace std::chrono;

// What a file time can hold: from 1601 to the last millisecond of its 63 bits, in the year 30828.
constexpr sys_time<milliseconds> firstTime = sys_days(year(1601) / January / 1);
constexpr sys_time<milliseconds> lastTime = sys_days(year(30828) / September / 14) + hours(2) +
                                            minutes(48) + seconds(5) + milliseconds(477);

bool ToTimePoint(const wm::SystemTime& time, sys_time<milliseconds>* point) {
    const year_month_day date(year(time.year), month(time.month), day(time.day));
    if (!date.ok() || time.hour > 23 || time.minute > 59 || time.second > 59 ||
        time.milliseconds > 999)
        return false;
    *point = sys_days(date) + hours(time.hour) + minutes(time.minute) + seconds(time.second) +
             milliseconds(time.milliseconds);
    return *point >= firstTime && *point <= lastTime;
}

using Pattern = boost::basic_regex<utility::char_t>;
using Match = boost::match_results<Text::const_iterator>;

// 0 for a part that the text leaves out.
std::uint16_t Capture(const Match& match, int index) {
    if (!match[index].matched)
        return 0;
    std::uint16_t number = 0;
    for (const utility::char_t digit : match[index].str())
        number = static_cast<std::uint16_t>(number * 10 + (digit - ZEL_TEXT('0')));
    return number;
}

HRESULT Matched(const Text& text, wm::SystemTime* time) {
    static const Pattern pattern(
        ZEL_TEXT("^(\\d{4})-([01]\\d)-([0-3]\\d)[T| "
                 "]([0-2]\\d):([0-5]\\d)(?::([0-5]\\d)(?:\\.(\\d{3}))?)?Z$"));
    Match match;
    if (!boost::regex_match(text, match, pattern))
        return hr::invalidData;
    *time = {Capture(match, 1), Capture(match, 2), 0,
             Capture(match, 3), Capture(match, 4), Capture(match, 5),
             Capture(match, 6), Capture(match, 7)};
    return hr::ok;
}

}  // namespace

Text FormatTimestamp(const wm::SystemTime& time) {
    const std::string formatted = wm::FormatUtc(time);
    return Text(formatted.begin(), formatted.end());
}

HRESULT ParseTimestamp(const Text& text, wm::SystemTime* time) {
    constexpr std::size_t shortest = 20;
    constexpr std::size_t longest = 24;
    if (text.empty() || time == nullptr)
        return hr::invalidArgument;
    const std::size_t length = CharacterCount(text);
    if (length < shortest || length > longest)
        return hr::timeTextLength;
    try {
        return Matched(text, time);
    } catch (...) {
        return hr::unexpected;
    }
}

HRESULT AdjustTimestamp(const Text& text, std::int32_t shift, Text* out) {
    wm::SystemTime time;
    const HRESULT result = ParseTimestamp(text, &time);
    if (Failed(result))
        return result;
    sys_time<milliseconds> point;
    bool exists = ToTimePoint(time, &point);
    if (exists) {
        point += milliseconds(shift);
        exists = point >= firstTime && point <= lastTime;
    }
    if (!exists)
        wm::Trace(wm::message::timeDoesNotExist);
    *out = FormatTimestamp(exists ? wm::ToSystemTime(point) : wm::SystemTime());
    return hr::ok;
}

}  // namespace ZEL::Schema
