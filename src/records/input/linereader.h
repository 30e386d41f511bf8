#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "records/input/bytestream.h"

namespace zel {

// Cuts lines out of a stream, which it does not own. For one thread. Memory is bounded by the
// longest line that is handed on, whatever the stream holds.
class LineReader {
public:
    static constexpr std::size_t longestLine = 64U << 20;  // bytes

    // Reading may go on after `line` and `tooLong`.
    enum class Status { line, tooLong, end, failed };

    // With `alsoEndsAt` a line ends behind that text as well: there are files of many megabytes in
    // one line.
    explicit LineReader(ByteStream& stream, std::string_view alsoEndsAt = {});

    // The next line without its end. A line beyond the limit is passed over, not kept in memory.
    // `failed` is final; what was read before it stays good. An end of line is \n, with or without
    // a \r ahead; the last line may lack it. A byte order mark in front of the first line is taken
    // off. Bytes are not checked, so a line may hold a NUL or be no UTF-8.
    Status Next(std::string* line);
    // Of the line that Next gave last, from 1; 0 ahead of the first. Lines that were too long
    // count; of those that ended elsewhere only those that began a line.
    std::uint64_t LineNumber() const noexcept { return lineNumber_; }
    // In words, without the file's name. Empty without a failure.
    const std::string& Error() const noexcept { return error_; }

private:
    bool Fill();
    bool CutAtMark(std::string* line, std::size_t before);

    ByteStream& stream_;
    const std::string alsoEndsAt_;
    std::string error_;
    std::string buffer_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    std::uint64_t lineNumber_ = 0;
    bool isWithinLine_ = false;  // the last one ended ahead of its end of line
};

}  // namespace zel
