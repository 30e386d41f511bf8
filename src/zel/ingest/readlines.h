#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "records/input/inputfiles.h"
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

// Waits until the descriptor can be read or the program is interrupted; false then.
bool AwaitDescriptor(int descriptor);
// What can't be read is told.
void TellUnreadable(const LinePlace& place, const std::string& why);

// Hands what is within a file, which people named, to `take`, part by part; an archive has several.
// The worst of what they ended with.
using TakePart = std::function<LinesEnd(const std::string& name, PeekStream& bytes)>;
LinesEnd ReadParts(const std::string& file, InputFiles& files, const TakePart& take);

// Hands the lines of a stream, but for blank ones, to `take` until that gives false. A line that is
// too long is a problem and not handed on. `line` is good until `take` returns. `problems` counts
// what was not handed on. `alsoEndsAt` as in LineReader.
using TakeLine = std::function<bool(const std::string& line, const LinePlace& place)>;
LinesEnd ReadLinesOf(const std::string& name, ByteStream& bytes, std::string_view alsoEndsAt,
                     LineProblems& problems, const TakeLine& take);

// The lines of a file ("-" is standard input).
LinesEnd ReadLines(const std::string& file, LineProblems& problems, const TakeLine& take);

}  // namespace zel
