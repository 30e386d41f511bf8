#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "records/formats/auditline.h"

namespace zel {

// All lines of one event.
struct AuditEvent {
    std::string text;                     // the lines, each as it came
    std::vector<std::size_t> lineStarts;  // where in the text each begins
    std::uint64_t firstLine = 0;          // number of its first line in the input

    [[nodiscard]] std::string_view Line(std::size_t index) const;
};

// Puts the lines of one event together, which may stand among those of others. What it holds is
// bounded: when there is too much of it, the oldest event is given away as it is.
//
// One thread at a time.
class AuditJoiner {
public:
    struct Limits {
        std::size_t events = 4096;
        std::size_t bytes = std::size_t{16} << 20;
        // Of one event: more lines are no event of a kernel.
        std::size_t eventLines = 4096;
        std::size_t eventBytes = std::size_t{4} << 20;
        // So many have to wait before one is complete because it is old, by the log's own times.
        std::size_t agingEvents = 256;
        std::uint64_t ageMs = 2000;
    };

    AuditJoiner() = default;
    explicit AuditJoiner(const Limits& limits) : limits_(limits) {}

    // Takes a line that was parsed into `parsed`. Both may go afterwards.
    void Add(std::string_view line, const AuditLine& parsed, std::uint64_t lineNumber);

    // No line follows: all that wait are complete.
    void Finish();

    // Where the oldest event begins that waits for further lines; 0 when none does.
    std::uint64_t FirstLine() const noexcept {
        return waiting_.empty() ? 0 : waiting_.front().event.firstLine;
    }

    // Gives the next complete event; false when there is none. What `event` held is dropped.
    bool Take(AuditEvent& event);

private:
    struct Waiting {
        std::string node;
        AuditStamp stamp;  // its node is the text above
        AuditEvent event;
        bool beginsWithCall = false;
        std::size_t missingPaths = 0;  // that its call has told of
    };
    using Place = std::list<Waiting>::iterator;
    struct StampHash {
        std::size_t operator()(const AuditStamp& stamp) const noexcept;
    };

    Place Find(const AuditStamp& stamp, std::uint64_t lineNumber);
    bool IsLast(Waiting& waiting, const AuditLine& line) const;
    void Complete(Place place);
    void CompleteOld(const AuditStamp& now);

    Limits limits_;
    std::list<Waiting> waiting_;  // by the order of their first lines
    std::unordered_map<AuditStamp, Place, StampHash> places_;
    std::size_t bytes_ = 0;  // of the text of all that wait
    std::deque<AuditEvent> complete_;
};

}  // namespace zel
