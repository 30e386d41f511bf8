#include "records/formats/auditjoiner.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <iterator>
#include <utility>

// When an event is complete. What programs send is always one line. What the kernel sends ends with
// a line of the type EOE, which the dispatcher passes on and auditd leaves out of its log; there
// the title of the process is the last line, behind the call and all paths that the call tells of.
// Where that does not help, because lines are missing, or come in another order or from an old
// kernel, an event waits until the same machine has gone on by two seconds and many others wait as
// well, or until there is no room for more. A late line begins an event of its own.

namespace zel {

namespace {

// The types that programs send, by what their names begin with.
constexpr std::array oneLineTypes{
    std::string_view{"USER"},      std::string_view{"CRED_"},    std::string_view{"CRYPTO_"},
    std::string_view{"DAEMON_"},   std::string_view{"SERVICE_"}, std::string_view{"SYSTEM_"},
    std::string_view{"ADD_"},      std::string_view{"DEL_"},     std::string_view{"GRP_"},
    std::string_view{"ACCT_"},     std::string_view{"ROLE_"},    std::string_view{"VIRT_"},
    std::string_view{"SOFTWARE_"}, std::string_view{"USYS_"},    std::string_view{"CHGRP_ID"},
    std::string_view{"CHUSER_ID"}};

constexpr std::string_view endType = "EOE";
constexpr std::string_view callType = "SYSCALL";
constexpr std::string_view pathType = "PATH";
constexpr std::string_view titleType = "PROCTITLE";

bool IsOneLine(std::string_view type) {
    return std::any_of(oneLineTypes.begin(), oneLineTypes.end(),
                       [&](std::string_view begin) { return type.starts_with(begin); });
}

// How many lines of paths belong to a call.
std::size_t PathsOf(std::string_view call) {
    constexpr std::string_view mark = " items=";
    const auto at = call.find(mark);
    std::size_t paths = 0;
    if (at != call.npos)
        std::from_chars(call.data() + at + mark.size(), call.data() + call.size(), paths);
    return paths;
}

std::uint64_t Milliseconds(const AuditStamp& stamp) {
    return stamp.seconds * 1000 + stamp.milliseconds;
}

}  // namespace

std::string_view AuditEvent::Line(std::size_t index) const {
    const std::size_t begin = lineStarts[index];
    const std::size_t end = index + 1 < lineStarts.size() ? lineStarts[index + 1] : text.size();
    return std::string_view(text).substr(begin, end - begin);
}

std::size_t AuditJoiner::StampHash::operator()(const AuditStamp& stamp) const noexcept {
    const std::size_t number = stamp.serial ^ (Milliseconds(stamp) << 20);
    return std::hash<std::size_t>{}(number) ^ std::hash<std::string_view>{}(stamp.node);
}

void AuditJoiner::Add(std::string_view line, const AuditLine& parsed, std::uint64_t lineNumber) {
    CompleteOld(parsed.stamp);
    const Place place = Find(parsed.stamp, lineNumber);
    AuditEvent& event = place->event;
    if (parsed.type != endType) {
        event.lineStarts.push_back(event.text.size());
        event.text.append(line);
        bytes_ += line.size();
    }
    if (IsLast(*place, parsed))
        Complete(place);
    while (!waiting_.empty() && (waiting_.size() > limits_.events || bytes_ > limits_.bytes))
        Complete(waiting_.begin());
}

bool AuditJoiner::IsLast(Waiting& waiting, const AuditLine& line) const {
    if (line.type == callType) {
        waiting.beginsWithCall = waiting.event.lineStarts.size() == 1;
        waiting.missingPaths = PathsOf(line.body);
    } else if (line.type == pathType && waiting.missingPaths > 0) {
        --waiting.missingPaths;
    }
    if (waiting.event.lineStarts.size() >= limits_.eventLines ||
        waiting.event.text.size() >= limits_.eventBytes)
        return true;
    return line.type == endType || IsOneLine(line.type) ||
           (line.type == titleType && waiting.beginsWithCall && waiting.missingPaths == 0);
}

AuditJoiner::Place AuditJoiner::Find(const AuditStamp& stamp, std::uint64_t lineNumber) {
    if (const auto known = places_.find(stamp); known != places_.end())
        return known->second;
    waiting_.push_back({std::string(stamp.node), stamp, {}, false, 0});
    const Place place = std::prev(waiting_.end());
    place->stamp.node = place->node;
    place->event.firstLine = lineNumber;
    places_.emplace(place->stamp, place);
    return place;
}

void AuditJoiner::CompleteOld(const AuditStamp& now) {
    const auto isOld = [&](const AuditStamp& stamp) {
        const std::uint64_t a = Milliseconds(stamp);
        const std::uint64_t b = Milliseconds(now);
        return stamp.node == now.node && std::max(a, b) - std::min(a, b) > limits_.ageMs;
    };
    while (waiting_.size() > limits_.agingEvents && isOld(waiting_.front().stamp))
        Complete(waiting_.begin());
}

// An event of which nothing but its end has come is none.
void AuditJoiner::Complete(Place place) {
    places_.erase(place->stamp);
    bytes_ -= place->event.text.size();
    if (!place->event.lineStarts.empty())
        complete_.push_back(std::move(place->event));
    waiting_.erase(place);
}

void AuditJoiner::Finish() {
    while (!waiting_.empty())
        Complete(waiting_.begin());
}

bool AuditJoiner::Take(AuditEvent& event) {
    if (complete_.empty())
        return false;
    event = std::move(complete_.front());
    complete_.pop_front();
    return true;
}

}  // namespace zel
