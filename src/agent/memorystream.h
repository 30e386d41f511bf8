#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "records/input/bytestream.h"

namespace zel {

// Bytes in memory as a stream; they have to outlive it.
class MemoryStream final : public ByteStream {
public:
    explicit MemoryStream(std::string_view bytes) : rest_(bytes) {}
    long Read(char* buffer, std::size_t size, std::string*) override {
        const std::size_t count = std::min(size, rest_.size());
        std::memcpy(buffer, rest_.data(), count);
        rest_.remove_prefix(count);
        return static_cast<long>(count);
    }

private:
    std::string_view rest_;
};

}  // namespace zel
