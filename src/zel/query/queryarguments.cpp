#include "zel/query/queryarguments.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>

#include "common/textbridge.h"
#include "records/eventkey.h"
#include "records/eventtime.h"
#include "zel/query/documentcheck.h"
#include "zel/terminal/textfit.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/keysplit.h"

// Flags are checked in the order in which a person would look for the mistake: what excludes each
// other, texts, names, hashes, addresses, times, numbers. The first mistake is told, with the flag,
// the argument and a caret, and ends the reading. What the store takes as text, such as paths,
// stays in the options.

namespace zel {

namespace {

using Texts = std::vector<std::string>;

bool ReadNumber(const std::string& text, std::uint32_t least, std::uint32_t most,
                std::uint32_t* number) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, *number);
    return parsed.ec == std::errc() && parsed.ptr == end && *number >= least && *number <= most;
}

// Only what was printed is taken, letter by letter: a position that was typed by guess would pass
// rows over. The number stays below the last one, as reading goes on behind it.
bool ParseCursor(const std::string& text, Cursor* cursor, std::string* problem) {
    const std::size_t slash = text.find('/');
    cursor->time = text.substr(0, slash);
    const TimeArgument time = ParseTimeArgument(cursor->time, {});
    constexpr std::uint32_t last = std::numeric_limits<std::uint32_t>::max() - 1;
    if (!time.ok || time.text != cursor->time || slash == text.npos ||
        !ReadNumber(text.substr(slash + 1), 0, last, &cursor->sequence)) {
        *problem = Complaint("--after-cursor", text,
                             "a position as --show-cursor prints it is expected, such as "
                             "2026-11-12T10:00:00.000Z/1",
                             time.ok ? std::min(slash, text.size()) : 0);
        return false;
    }
    return true;
}

class Reader {
public:
    Reader(const QueryOptions& options, QueryArguments* arguments, std::string* problem)
        : options_(options), out_(*arguments), problem_(*problem) {}

    bool Read() {
        return ReadZone() && CheckCombination() && CheckTexts() && CheckNames() && CheckHashes() &&
               CheckIps() && ReadTimes() && ReadNumbers() && CheckKey();
    }

private:
    bool Refuse(std::string why) {
        problem_ = std::move(why);
        return false;
    }

    bool HasConditions() const {
        const Texts* const lists[] = {
            &options_.actions,     &options_.objects,   &options_.actorPaths,
            &options_.targetPaths, &options_.patterns,  &options_.hashes,
            &options_.ips,         &options_.typeIds,   &options_.correlations,
            &options_.actorUids,   &options_.wheres,    &options_.cmdLines,
            &options_.users,       &options_.computers, &options_.pids,
            &options_.ports,       &options_.greps};
        return std::any_of(std::begin(lists), std::end(lists),
                           [](const Texts* list) { return !list->empty(); });
    }

    // Ahead of the times, which may mean others there.
    bool ReadZone() {
        const std::string& name = options_.answer.zone;
        std::string why;
        auto zone = ZoneTime::Find(name.empty() ? "UTC" : name, &why);
        if (!zone)
            return Refuse("--tz: " + why);
        zone_ = std::move(*zone);
        return true;
    }

    // Ahead of the values, since a flag that does not belong there need not be right.
    bool CheckCombination() {
        const bool enriches = options_.enrichments || options_.noLiveEnriched;
        if (options_.byReceive && (HasConditions() || enriches))
            return Refuse(
                "--by receive walks rows that hold the time of receipt alone: it can only be "
                "combined with --since, --until, --day and --limit");
        if (!options_.afterCursor.empty() && (!options_.byReceive || !options_.since.empty()))
            return Refuse("--after-cursor needs --by receive and takes the place of --since");
        if (options_.showCursor && !options_.byReceive)
            return Refuse("--show-cursor needs --by receive: other rows have no position");
        if (!options_.day.empty() &&
            !(options_.since + options_.until + options_.afterCursor).empty())
            return Refuse(
                "--day takes the place of --since and --until, and excludes --after-cursor");
        if (!options_.key.empty() &&
            (HasConditions() || options_.byReceive || options_.noLiveEnriched ||
             !(options_.since + options_.until + options_.day).empty()))
            return Refuse("--key names one event; nothing else can be asked beside it");
        if (!options_.patterns.empty() && !options_.targetPaths.empty())
            return Refuse(
                "--pattern and --target-path exclude each other: both test the path of the target");
        return true;
    }

    bool CheckKey() {
        if (options_.key.empty())
            return true;
        const std::string_view why = WhyNoEventKey(options_.key);
        if (!why.empty())
            return Refuse(Complaint("--key", options_.key, std::string(why)));
        ZEL::KeyFields fields;
        ZEL::SplitKeyFields(options_.key, &fields);
        const std::string number(fields.Find(KeyFieldName(ZEL::KeyField::sequence)).value_or(""));
        if (number.size() != ZEL::keyDigits ||
            !ReadNumber(number, 0, std::numeric_limits<std::uint32_t>::max(), &out_.sequence))
            return Refuse(
                Complaint("--key", options_.key, "the key has no sequence of ten digits"));
        out_.since = out_.until = std::string(ZEL::BeginTimeOf(options_.key));
        return true;
    }

    bool CheckTexts() {
        const std::pair<const char*, const Texts*> lists[] = {
            {"--actor-path", &options_.actorPaths},
            {"--target-path", &options_.targetPaths},
            {"--pattern", &options_.patterns},
            {"--correlation", &options_.correlations},
            {"--actor-uid", &options_.actorUids}};
        for (const auto& [flag, list] : lists)
            for (const std::string& text : *list)
                if (!wm::IsUtf8(text))
                    return Refuse(Complaint(flag, text, "not UTF-8"));
        for (const std::string& pattern : options_.patterns)
            if (const auto problem = TryPattern(pattern, false))
                return Refuse(Complaint("--pattern", pattern, problem->what, problem->at));
        return true;
    }

    bool CheckNames() {
        const auto check = [this](const char* flag, const char* what, const Texts& names,
                                  const std::vector<std::string_view>& known) {
            for (const std::string& name : names)
                if (std::find(known.begin(), known.end(), name) == known.end())
                    return Refuse(Complaint(flag, name, UnknownName(what, name, known)));
            return true;
        };
        return check("--action", "action", options_.actions, ActionNames()) &&
               check("--object", "object type", options_.objects, ObjectTypeNames());
    }

    // By the lengths of SHA-256, SHA-384 and SHA-512.
    bool CheckHashes() {
        for (const std::string& hash : options_.hashes) {
            const std::size_t at = hash.find_first_not_of("0123456789abcdefABCDEF");
            if (at != hash.npos)
                return Refuse(Complaint("--hash", hash, "a hexadecimal digit is expected", at));
            if (hash.size() != 64 && hash.size() != 96 && hash.size() != 128)
                return Refuse(Complaint("--hash", hash,
                                        "keys hold SHA-2 hashes alone, which have 64 digits",
                                        hash.size()));
        }
        return true;
    }

    // Only characters that an address never has are refused: it may be a part of one with
    // wildcards.
    bool CheckIps() {
        for (const std::string& ip : options_.ips) {
            const std::size_t at = ip.find_first_not_of("0123456789abcdefABCDEF.:%*?");
            if (at != ip.npos)
                return Refuse(Complaint("--ip", ip, "an address is expected", at));
        }
        return true;
    }

    // `endOfDay`, where it is not null, gets the last moment of a date; for a time, the time.
    bool ReadTime(const char* flag, const std::string& argument, std::string* text,
                  std::string* endOfDay) {
        if (argument.empty())
            return true;
        const TimeArgument time = ParseTimeInZone(argument, zone_);
        if (!time.ok)
            return Refuse(Complaint(flag, argument, time.error, time.column));
        if (text != nullptr)
            *text = time.text;
        if (endOfDay != nullptr)
            *endOfDay = time.endOfDay.empty() ? time.text : time.endOfDay;
        return true;
    }

    // A range that is turned around would find nothing, and is mostly a slip.
    bool ReadTimes() {
        if (!ReadTime("--since", options_.since, &out_.since, nullptr) ||
            !ReadTime("--until", options_.until, nullptr, &out_.until) ||
            !ReadTime("--day", options_.day, &out_.since, &out_.until))
            return false;
        if (!options_.day.empty() && out_.since == out_.until)
            return Refuse(Complaint("--day", options_.day,
                                    "a date such as 2026-11-12, today or yesterday is expected"));
        if (!options_.afterCursor.empty()) {
            Cursor cursor;
            if (!ParseCursor(options_.afterCursor, &cursor, &problem_))
                return false;
            out_.since = cursor.time;
            out_.sequence = cursor.sequence + 1;  // rows are ordered by time, then by number
            return true;
        }
        if (!out_.until.empty() && out_.until < out_.since)
            return Refuse("--until (" + out_.until + ") lies before --since (" + out_.since + ")");
        return true;
    }

    bool ReadNumbers() {
        for (const std::string& text : options_.typeIds) {
            std::uint32_t number = 0;
            if (!ReadNumber(text, 0, std::numeric_limits<std::uint32_t>::max(), &number))
                return Refuse(Complaint("--type-id", text, "a number is expected, such as 8001"));
            out_.typeIds.push_back(number);
        }
        if (options_.limit.empty())
            return true;
        std::uint32_t number = 0;
        if (!ReadNumber(options_.limit, 0, std::numeric_limits<std::int32_t>::max(), &number))
            return Refuse(
                Complaint("--limit", options_.limit, "a number from 0 to 2147483647 is expected"));
        out_.limit = static_cast<std::int32_t>(number);
        return true;
    }

    const QueryOptions& options_;
    QueryArguments& out_;
    std::string& problem_;
    ZoneTime zone_;
};

}  // namespace

// A day by its name is the one that the clocks there show.
TimeArgument ParseTimeInZone(const std::string& argument, const ZoneTime& zone) {
    using std::chrono::milliseconds;
    const auto now = std::chrono::floor<milliseconds>(std::chrono::system_clock::now());
    const bool isNamedDay = argument == "today" || argument == "yesterday";
    TimeArgument time = ParseTimeArgument(argument, isNamedDay ? zone.ClockAt(now) : now);
    if (!time.ok || !time.isOfAnyZone || zone.IsUtc())
        return time;
    const auto move = [&zone](std::string* text, milliseconds behind) {
        const ZoneTime::Point clock{milliseconds(MillisecondsIn(*text).value_or(0)) + behind};
        const auto moment =
            EventTimeOfMilliseconds((zone.MomentOf(clock) - behind).time_since_epoch().count());
        if (moment)
            *text = moment->text;
    };
    move(&time.text, milliseconds(0));
    if (!time.endOfDay.empty())
        move(&time.endOfDay, milliseconds(1));  // the next day's first moment tells this one's end
    return time;
}

std::string Complaint(const char* flag, const std::string& argument, const std::string& what,
                      std::size_t at) {
    return std::string(flag) + ": " + what + "\n" + PointAt(argument, at);
}

bool ReadArguments(const QueryOptions& options, QueryArguments* arguments, std::string* problem) {
    return Reader(options, arguments, problem).Read();
}

std::string ToText(const Cursor& cursor) {
    return cursor.time + "/" + std::to_string(cursor.sequence);
}

}  // namespace zel
