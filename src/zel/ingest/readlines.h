#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "zel/ingest/lineproblems.h"

namespace zel {

// Where a line stands, as "FILE:LINE" in messages; lines count from 1.
struct LinePlace {
    std::string file;  // as people know it
    std::uint64_t line = 0;

    std::string Text() const { return file + ":" + std::to_string(line); }
};

// What ended the reading. After `all` and `unreadable` the next file may be read.
enum class LinesEnd {
    all,
    unreadable,  // at or before the last line, which was told
    stopped,     // by the taker
    interrupted  // which was told
};

// Hands the lines of a file ("-" is standard input), but for blank ones, to `take` until that gives
// false. A line that is too long is a problem and not handed on. `line` is good until `take`
// returns. `problems` counts what was not handed on.
using TakeLine = std::function<bool(const std::string& line, const LinePlace& place)>;
LinesEnd ReadLines(const std::string& file, LineProblems& problems, const TakeLine& take);

}  // namespace zel
