#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace zel {

// Bytes, from the front to the end. For one thread.
class ByteStream {
public:
    virtual ~ByteStream() = default;
    // The number of bytes put into `buffer`, at most `size`, which is not 0; 0 at the end; -1 for a
    // failure, which `*error` tells in words. After those it is not to be called again.
    virtual long Read(char* buffer, std::size_t size, std::string* error) = 0;
};

// A stream whose first bytes can be looked at ahead of reading them. Does not own the other.
class PeekStream final : public ByteStream {
public:
    explicit PeekStream(ByteStream& inner) : inner_(inner) {}

    // The first bytes, which stay to be read: as many as asked for, unless `isEnough` says earlier
    // that they will do, or there are no more. A pipe that has given less is waited for.
    template <typename IsEnough>
    const std::string& Peek(std::size_t count, IsEnough isEnough) {
        char buffer[512];
        while (head_.size() < count && !ended_ && !isEnough(head_)) {
            const long got = inner_.Read(buffer, sizeof(buffer), &error_);
            ended_ = got <= 0;
            if (got > 0)
                head_.append(buffer, static_cast<std::size_t>(got));
        }
        return head_;
    }

    long Read(char* buffer, std::size_t size, std::string* error) override {
        if (!head_.empty()) {
            const std::size_t taken = std::min(size, head_.size());
            std::memcpy(buffer, head_.data(), taken);
            head_.erase(0, taken);
            return static_cast<long>(taken);
        }
        if (!ended_)
            return inner_.Read(buffer, size, error);
        *error = error_;
        return error_.empty() ? 0 : -1;
    }

private:
    ByteStream& inner_;
    std::string head_;
    std::string error_;
    bool ended_ = false;
};

}  // namespace zel
