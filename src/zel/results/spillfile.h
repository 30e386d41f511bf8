#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zel {

// Texts that memory would not hold, in a file without a name below TMPDIR, which goes with the
// object or with the process. For one thread.
class SpillFile {
public:
    SpillFile() = default;
    ~SpillFile();
    SpillFile(const SpillFile&) = delete;
    SpillFile& operator=(const SpillFile&) = delete;

    // Puts a text behind the others. False when it can't be kept; Problem tells why.
    bool Append(std::string_view text);
    // What was appended so far, in bytes with what tells the texts apart: where the next one
    // begins.
    std::uint64_t End() const noexcept { return end_ + buffer_.size(); }

    // Reads texts one behind the other, from `begin` to `end`, places that End told. Nothing is to
    // be appended any more. The file must outlive it.
    class Reader {
    public:
        Reader(SpillFile& file, std::uint64_t begin, std::uint64_t end)
            : file_(&file), at_(begin), end_(end) {}
        // False at the end, and when it can't be read. The text is good until the next call.
        bool Next(std::string_view* text);

    private:
        bool Fill(std::size_t bytes);

        SpillFile* file_;
        std::uint64_t at_, end_;
        std::string buffer_;
        std::size_t used_ = 0;  // of the buffer
    };

    // In words; empty as long as all went well.
    const std::string& Problem() const noexcept { return problem_; }

private:
    bool Open();
    bool Flush();
    bool Fail(const char* what);

    int descriptor_ = -1;
    std::uint64_t end_ = 0;  // on the disk
    std::string buffer_;
    std::string problem_;
};

}  // namespace zel
