#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "records/input/bytestream.h"

namespace zel {

// Waits until the descriptor can be read; false when no more is to be read, which then looks like
// the end of the data.
using AwaitInput = std::function<bool(int descriptor)>;

// How the reading of a file that somebody named has ended.
enum class InputEnd {
    all,
    unreadable,  // wholly or from some place on, which `*error` tells
    stopped,     // by the taker
};

// Opens files that somebody named, unpacks them, and gives what is within: the file itself, or each
// file of an archive. What a file is, is told by its first bytes and not by its name, which a pipe
// does not have. For one thread.
class InputFiles {
public:
    explicit InputFiles(AwaitInput await) : await_(std::move(await)) {}

    // A file: its name as people know it ("logs.zip:a/b.evtx"), and its bytes, of which the first
    // were looked at. False when no more is to be read.
    using Take = std::function<bool(const std::string& name, PeekStream& bytes)>;
    // `file` may be "-", standard input. Failures while a file's bytes are read its taker sees.
    InputEnd Read(const std::string& file, const Take& take, std::string* error);

    // Of the file that is being read, packed as it may be. The whole is 0 where nobody knows.
    std::uint64_t BytesRead() const noexcept { return bytesRead_; }
    std::uint64_t BytesInAll() const noexcept { return bytesInAll_; }

private:
    InputEnd ReadStream(ByteStream& stream, const std::string& name, int depth, const Take& take,
                        std::string* error);

    const AwaitInput await_;
    std::uint64_t bytesRead_ = 0;
    std::uint64_t bytesInAll_ = 0;
};

}  // namespace zel
