#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/ways.h"

namespace zel {

// A descriptor that is closed with it.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&&) = delete;
    ~FileDescriptor();

    int Get() const noexcept { return descriptor_; }
    // False for anything but a regular file.
    bool IsFile(struct stat* info) const;

private:
    int descriptor_;
};
std::int64_t WrittenAt(const struct stat& info) noexcept;
// Whether the second may be a copy of the first, which is not empty.
bool BeginAlike(const FileDescriptor& first, const FileDescriptor& second);
// Not more than a regular file is opened; the descriptor is -1 for all else, with errno.
FileDescriptor OpenToTail(const std::string& path);

// How far a file was read, as it is kept. A file is known by how it begins and by what stands ahead
// of that place: its name and its number may be another file's by now.
struct TailMark {
    std::uint64_t number = 0;  // inode
    std::uint64_t offset = 0;
    std::uint64_t sum = 0;       // of the bytes that it is known by
    std::int64_t writtenAt = 0;  // last, as far as was seen

    // Nothing was read of it.
    explicit TailMark(std::uint64_t theNumber = 0) : number(theNumber) {}
    static std::optional<TailMark> Parse(const SpoolMark& mark, const std::string& prefix);
    SpoolMark Told(const std::string& prefix) const;
    // That all up to there was read of it.
    void MoveTo(std::uint64_t place, const FileDescriptor& file);
    // Whether this is the file, or one of the same content so far.
    bool Fits(const FileDescriptor& file) const;
};

// One file that is read as it grows, whatever its name is by now. For one thread.
class TailedFile {
public:
    // `prefix` is that of its marks, `name` what messages call it. The file fits the mark.
    TailedFile(AgentParts& parts, std::string prefix, const std::string& name, FileDescriptor file,
               const TailMark& mark);

    bool Is(const struct stat& info) const noexcept;
    // When it was written last, in nanoseconds.
    std::int64_t WrittenAt() const;
    // Takes what was read and had no room; false when there is still none.
    bool Commit() { return sink_.Commit(); }
    // Reads and takes some. False when there is nothing for now.
    bool Step();
    // Whether it holds less, or another thing, than was read of it: it was begun anew.
    bool WasEmptied();
    // Begins anew as well. `copy`, where there is one, goes on with what was not read.
    void BeginAnew(const TailedFile* copy);
    // How long nothing has come.
    std::chrono::seconds Quiet() const;
    // There is no more: what waits for an end of line is taken, and the mark goes. False when there
    // was no room: to be tried again.
    bool End();
    // Where it would be gone on with now.
    const TailMark& Mark() const noexcept { return mark_; }

private:
    using Clock = std::chrono::steady_clock;

    std::uint64_t ReadPart();
    void TakePart(std::vector<SpoolMark> marks);

    AgentParts& parts_;
    const std::string prefix_;
    FileDescriptor file_;
    dev_t device_ = 0;
    TailMark mark_;
    std::uint64_t readTo_ = 0;
    std::int64_t seenAt_ = 0;  // when it was written last, as it was looked at last
    std::unique_ptr<LineStream> stream_;
    PartSink sink_;
    Clock::time_point grewAt_ = Clock::now();
    bool isEnding_ = false;
};

}  // namespace zel
