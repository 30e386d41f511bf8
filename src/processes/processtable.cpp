#include "processes/processtable.h"

#include <algorithm>
#include <charconv>

#include "common/asciicase.h"
#include "processes/processlinks.h"
#include "records/eventtime.h"

// Events are taken over as they come and put in order at the end, since folders of a store overlap
// in time. Most texts come again and again, so each is kept once.

namespace zel {

namespace {

std::optional<std::uint64_t> NumberOf(std::optional<std::string_view> text) {
    std::uint64_t number = 0;
    if (!text)
        return std::nullopt;
    const auto parsed = std::from_chars(text->data(), text->data() + text->size(), number);
    const bool isAll = parsed.ec == std::errc() && parsed.ptr == text->data() + text->size();
    return isAll ? std::optional(number) : std::nullopt;
}

std::string_view WithoutBraces(std::string_view uid) {
    return uid.starts_with('{') && uid.ends_with('}') && uid.size() > 2
               ? uid.substr(1, uid.size() - 2)
               : uid;
}

// The columns of one of the two processes of an event.
struct Side {
    const Column *uid, *pid, *path, *cmdLine;
};
const Side& Actor() {
    static const Side side = {FindColumn("actor_uid"), FindColumn("actor_pid"),
                              FindColumn("actor_path"), FindColumn("actor_cmd_line")};
    return side;
}
const Side& Target() {
    static const Side side = {FindColumn("target_uid"), FindColumn("target_pid"),
                              FindColumn("target_path"), FindColumn("target_cmd_line")};
    return side;
}

std::optional<std::string_view> ValueOf(RecordReader& event, const char* column) {
    return event.Value(*FindColumn(column));
}

bool IsAction(RecordReader& event, std::string_view action) {
    return ValueOf(event, "object") == "process" && ValueOf(event, "action") == action;
}

std::int64_t TimeOf(RecordReader& event) {
    const auto text = ValueOf(event, "time");
    return (text ? MillisecondsIn(*text) : std::nullopt).value_or(ProcessNode::never);
}

std::string_view UidOf(RecordReader& event, const Side& side) {
    return WithoutBraces(event.Value(*side.uid).value_or(""));
}

}  // namespace

ProcessTable::ProcessTable(std::size_t mostBytes) : mostBytes_(mostBytes) {}

std::string_view ProcessTable::Keep(std::optional<std::string_view> text) {
    constexpr std::size_t perText = 64;  // what the set takes for one
    if (!text || text->empty())
        return "";
    const auto [kept, isNew] = texts_.emplace(*text);
    bytes_ += isNew ? kept->size() + perText : 0;
    return *kept;
}

bool ProcessTable::Add(RecordReader& event) {
    constexpr std::size_t perProcess = sizeof(Launch) + 3 * sizeof(ProcessNode);
    const bool isLaunch = IsAction(event, "launch");
    if (!isLaunch && !IsAction(event, "terminate"))
        return true;
    if (!HasRoom())
        return false;
    const Side& side = Target();
    const auto pid = NumberOf(event.Value(*side.pid));
    const auto uid = Keep(UidOf(event, side)), path = Keep(event.Value(*side.path));
    const auto computer = Keep(ValueOf(event, "computer"));
    const std::int64_t time = TimeOf(event);
    bytes_ += isLaunch ? perProcess : sizeof(End);
    if (!isLaunch) {
        ends_.push_back({uid, path, computer, pid, time});
        return true;
    }
    Launch& launch = launches_.emplace_back();
    launch.process.uid = uid;
    launch.process.path = path;
    launch.process.computer = computer;
    launch.process.pid = pid;
    launch.process.start = time;
    launch.process.cmdLine = Keep(event.Value(*side.cmdLine));
    launch.process.user = Keep(ValueOf(event, "user"));
    const Side& by = Actor();
    launch.by.uid = Keep(UidOf(event, by));
    launch.by.path = Keep(event.Value(*by.path));
    launch.by.cmdLine = Keep(event.Value(*by.cmdLine));
    launch.by.pid = NumberOf(event.Value(*by.pid));
    return true;
}

void ProcessTable::Link() {
    ProcessLinks(*this).Make();
}

std::vector<std::uint32_t> ProcessTable::WithUid(std::string_view uid) const {
    std::vector<std::uint32_t> found;
    for (std::uint32_t i = 0; i < nodes_.size(); ++i)
        if (!nodes_[i].uid.empty() && ZEL::EqualsNoCase(nodes_[i].uid, WithoutBraces(uid)))
            found.push_back(i);
    return found;
}

std::vector<std::uint32_t> ProcessTable::WithPid(std::uint64_t pid) const {
    std::vector<std::uint32_t> found;
    for (std::uint32_t i = 0; i < nodes_.size(); ++i)
        if (nodes_[i].pid == pid)
            found.push_back(i);
    std::stable_sort(found.begin(), found.end(), [this](std::uint32_t a, std::uint32_t b) {
        return nodes_[a].start < nodes_[b].start;
    });
    return found;
}

// Without an identifier it is the last process with that number that had begun by then.
std::optional<std::uint32_t> ProcessTable::Of(RecordReader& event) const {
    const bool isOfTarget = IsAction(event, "launch") || IsAction(event, "terminate");
    const Side& side = isOfTarget ? Target() : Actor();
    if (const std::string_view uid = UidOf(event, side); !uid.empty())
        if (const auto found = WithUid(uid); !found.empty())
            return found.front();
    const auto pid = NumberOf(event.Value(*side.pid));
    if (!pid)
        return std::nullopt;
    const std::string computer(ValueOf(event, "computer").value_or(""));
    const std::int64_t time = TimeOf(event);
    std::optional<std::uint32_t> last;
    for (const std::uint32_t each : WithPid(*pid)) {
        const ProcessNode& node = nodes_[each];
        if (node.start <= time && node.computer == computer)
            last = each;
    }
    return last;
}

}  // namespace zel
