#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "records/recordreader.h"

namespace zel {

// A process that events tell of. Texts are empty where they are not known, and live as long as the
// table.
struct ProcessNode {
    // Ahead of all times, and so far from them that differences of two can be told.
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::min() / 2;
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    std::string_view uid;  // the source's identifier, without braces
    std::string_view path, cmdLine, user, computer;
    std::optional<std::uint64_t> pid;
    std::int64_t start = never, end = never;  // milliseconds since 1970; `never`: not known
    // Places in the table. Children are in the order of their start.
    std::uint32_t parent = none, firstChild = none, nextSibling = none;
};

// Who began whom: made of the events of launches and ends, in any order. One object for one answer.
// For one thread.
class ProcessTable {
public:
    // `mostBytes`: about as much memory is taken at most.
    explicit ProcessTable(std::size_t mostBytes = std::size_t(512) << 20);
    ProcessTable(const ProcessTable&) = delete;
    ProcessTable& operator=(const ProcessTable&) = delete;

    // Takes the event over; what is neither launch nor end of a process is passed over. False when
    // there is no more room, and it was not taken.
    bool Add(RecordReader& event);
    // Behind the last event, once; the functions below are good from then on.
    void Link();

    std::span<const ProcessNode> All() const noexcept { return nodes_; }
    // With or without braces, in any letter case; mostly one.
    std::vector<std::uint32_t> WithUid(std::string_view uid) const;
    // In the order of their start: numbers are used again.
    std::vector<std::uint32_t> WithPid(std::uint64_t pid) const;
    // The process that an event is about: the target of a launch or an end, else the actor. None
    // where the table has it not.
    std::optional<std::uint32_t> Of(RecordReader& event) const;

private:
    friend class ProcessLinks;

    // What a launch says of the process that made it.
    struct Launcher {
        std::string_view uid, path, cmdLine;
        std::optional<std::uint64_t> pid;
    };
    struct Launch {
        ProcessNode process;
        Launcher by;
    };
    struct End {
        std::string_view uid, path, computer;
        std::optional<std::uint64_t> pid;
        std::int64_t time = ProcessNode::never;
    };

    std::string_view Keep(std::optional<std::string_view> text);
    bool HasRoom() const noexcept { return bytes_ < mostBytes_; }

    const std::size_t mostBytes_;
    std::size_t bytes_ = 0;
    std::unordered_set<std::string> texts_;
    std::vector<Launch> launches_;
    std::vector<End> ends_;
    std::vector<ProcessNode> nodes_;
};

}  // namespace zel
