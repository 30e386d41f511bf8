#include "zel/query/newestwindows.h"

#include <algorithm>
#include <optional>
#include <set>

#include "connection/storelook.h"
#include "records/eventtime.h"

// The first range is the day up to the newest folder's date, or to the question's end. Where it has
// some events but too few, the second is as long as it would have to be if all days were like that,
// twice over; the third is the rest. More ranges would cost more than they save, since each seeks
// in every folder.
//
// Only questions whose parts have one plain range are taken apart; others are asked as they are.

namespace zel {

namespace {

using web::json::value;

constexpr std::int64_t day = 86400000;  // milliseconds

// The time of a pair, when its operator is `plain` or not there.
std::optional<std::int64_t> PlainTime(const value& event, const char* key, const char* plain) {
    if (!event.has_field(key))
        return std::nullopt;
    const value& pair = event.at(key);
    if (pair.has_field("operator") && pair.at("operator").at("value").as_string() != plain)
        return std::nullopt;
    return MillisecondsIn(pair.at("value").as_string());
}

value PairOf(const char* comparison, std::int64_t time) {
    value pair = value::object(true);
    pair["operator"]["value"] = value(comparison);
    pair["value"] = value(EventTimeOfMilliseconds(time).value_or(EventTime()).text);
    return pair;
}

// Whether all parts have one range, which begins and ends in the plain way.
bool HasOneRange(const web::json::array& events) {
    std::set<std::string> ranges;
    for (const value& event : events) {
        const bool hasEnd = event.has_field("end_time");
        if (event.has_field("seq_num") || event.has_field("receive_time") ||
            !PlainTime(event, "begin_time", "greater_than_or_equal") ||
            (hasEnd && !PlainTime(event, "end_time", "less_than_or_equal")))
            return false;
        ranges.insert(event.at("begin_time").serialize() +
                      (hasEnd ? event.at("end_time").serialize() : ""));
    }
    return ranges.size() == 1;
}

}  // namespace

NewestWindows::NewestWindows(const value& document, std::int64_t wanted)
    : NewestWindows(document, wanted, NewestEventsFolder()) {}

NewestWindows::NewestWindows(const value& document, std::int64_t wanted, std::string newestFolder)
    : document_(document), wanted_(static_cast<std::uint64_t>(std::max<std::int64_t>(wanted, 1))) {
    const web::json::array& events = document.at("event_query").at("events").as_array();
    const auto newest =
        newestFolder.size() < 8
            ? std::nullopt
            : MillisecondsIn(newestFolder.insert(6, "-").insert(4, "-").substr(0, 10) +
                             "T00:00:00Z");
    isOne_ = !newest || !HasOneRange(events);
    if (isOne_)
        return;
    first_ = *PlainTime(events.at(0), "begin_time", "greater_than_or_equal");
    top_ = *newest + day;
    if (const auto end = PlainTime(events.at(0), "end_time", "less_than_or_equal"))
        top_ = std::min(top_, *end);
}

std::int64_t NewestWindows::NextBegin(std::uint64_t found) const {
    constexpr std::uint64_t mostDays = 100000;
    if (given_ == 0)
        return std::max(first_, top_ - day);
    if (given_ > 1 || found == 0)
        return first_;
    const std::uint64_t days = std::min(2 * (wanted_ / found + 1), mostDays);
    return std::max(first_, begin_ - static_cast<std::int64_t>(days) * day);
}

bool NewestWindows::Next(std::uint64_t found, value* document) {
    if (isDone_)
        return false;
    *document = document_;
    const std::int64_t begin = isOne_ ? first_ : NextBegin(found);
    isDone_ = isOne_ || begin == first_;
    value& events = (*document)["event_query"]["events"];
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (!isDone_)
            events[i]["begin_time"] = PairOf("greater_than_or_equal", begin);
        if (given_ > 0)
            events[i]["end_time"] = PairOf("less_than_or_equal", begin_ - 1);
    }
    begin_ = begin;
    ++given_;
    return true;
}

}  // namespace zel
