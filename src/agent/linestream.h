#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/intake.h"
#include "agent/linecutter.h"

namespace zel {

using LineProblems = std::vector<std::pair<std::uint64_t, IntakeProblem>>;  // with their lines

// What came of a piece of a stream, and where to go on once that is on the disk.
struct StreamPart {
    std::shared_ptr<Delivery> delivery;
    LineProblems problems;
    std::uint64_t line = 1;    // the first that nothing here comes from
    std::uint64_t offset = 0;  // where it begins
};

// Events of lines that come by and by and may never end: each part of them can be taken by itself.
// An event of several lines goes with the part in which its last one stands, and until then the
// place to go on is ahead of it. For one thread; memory is bounded by what one part holds.
class LineStream {
public:
    // All outlive this. With `key` events have ids, of it and the number of the line.
    LineStream(ZEL::IEventStore7& store, const LiveConfig& config, std::string key = "",
               std::uint64_t offset = 0);

    void Feed(std::string_view bytes) { Cut(bytes, false); }
    // Nothing follows: what waits for more, also a line without its end, comes as it is.
    void End();
    // The same for events of several lines alone, when nothing has come for a while.
    void Settle();
    bool HoldsEvents() const noexcept { return intake_ && intake_->HeldFrom() != 0; }

    // Of what was fed since the last part, in bytes.
    std::uint64_t Unsettled() const noexcept { return unsettled_; }
    StreamPart TakePart();

private:
    struct Place {
        std::uint64_t given = 0;  // its number among all that the intake was given
        CutLine line;
    };

    void Cut(std::string_view bytes, bool isLast);
    void TakeLine(const CutLine& line);
    void Note(std::uint64_t line, Intake::Outcome outcome);

    ZEL::IEventStore7& store_;
    const LiveConfig& config_;
    const std::string key_;
    LineCutter cutter_;
    std::optional<Intake> intake_;
    std::uint64_t given_ = 0;
    std::deque<Place> places_;  // of what the intake was given, from where it may hold lines back
    LineProblems problems_;
    std::uint64_t unsettled_ = 0;
};

}  // namespace zel
