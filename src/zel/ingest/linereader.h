#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zel {

// Reads lines of a file or of standard input ("-"), plain or compressed with gzip or xz; which, is
// told by the first bytes. For one thread. Memory is bounded by the longest line that is handed on,
// whatever the file holds. A read waits for a pipe until something comes or the program is
// interrupted, which looks like the end of the data or like data that is cut off: the caller asks
// Interrupted.
class LineReader {
public:
    static constexpr std::size_t longestLine = 64U << 20;  // bytes

    // Reading may go on after `line` and `tooLong`.
    enum class Status { line, tooLong, end, failed };

    // On failure Error tells why, and Next gives `failed`.
    explicit LineReader(const std::string& file);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line without its end. A line beyond the limit is passed over, not kept in memory.
    // `failed` is final; what was read before it stays good. An end of line is \n, with or without
    // a \r ahead; the last line may lack it. A byte order mark in front of the first line is taken
    // off. Bytes are not checked, so a line may hold a NUL or be no UTF-8.
    Status Next(std::string* line);
    // Of the line that Next gave last, from 1; 0 ahead of the first. Lines that were too long
    // count.
    std::uint64_t LineNumber() const noexcept { return lineNumber_; }
    // In words, without the file's name. Empty without a failure.
    const std::string& Error() const noexcept { return error_; }

    // Where the bytes come from once they are unpacked. Wrapped around one another, each owning the
    // one behind it.
    class Source {
    public:
        virtual ~Source() = default;
        // Number of bytes put into `buffer`; 0 at the end, -1 for a failure that `error` tells.
        virtual long Read(char* buffer, std::size_t size, std::string* error) = 0;
    };

private:
    bool Fill();

    std::string error_;  // ahead of the source, whose opening may fill it
    std::unique_ptr<Source> source_;
    std::string buffer_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    std::uint64_t lineNumber_ = 0;
};

}  // namespace zel
