#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>

#include "common/place.h"

// What the fuzz targets share. Each target is one source with LLVMFuzzerTestOneInput: the fuzzing
// engine calls it with inputs of its own, corpusmain.cpp with those that are kept.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace ZEL::fuzz {

// Takes an input apart from its front. An input that has run out gives zeros and empty texts.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    bool Empty() const { return rest_.empty(); }
    unsigned Byte() {
        const unsigned byte = rest_.empty() ? 0 : static_cast<unsigned char>(rest_.front());
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return byte;
    }
    unsigned Below(unsigned count) { return Byte() % count; }
    // The first choices come more often, so that two picks meet.
    template <typename T, std::size_t n>
    const T& Pick(const T (&choices)[n]) {
        const unsigned byte = Byte();
        return choices[byte * byte * n / 65536];
    }
    // What stands ahead of the next line feed, which is taken too.
    std::string Line() {
        const std::string line(rest_.substr(0, rest_.find('\n')));
        rest_.remove_prefix(line.size() < rest_.size() ? line.size() + 1 : line.size());
        return line;
    }
    std::string Rest() const { return std::string(rest_); }

private:
    std::string_view rest_;
};

// Ends the process, which the engine takes for a find, unless `holds`. The texts tell what was
// wrong.
inline void Check(bool holds, std::initializer_list<std::string_view> texts,
                  wm::Place place = wm::Place::Current()) {
    if (holds)
        return;
    std::fprintf(stderr, "%s:%d: found:\n", place.file, place.line);
    for (const std::string_view text : texts)
        std::fprintf(stderr, "  [%.*s]\n", static_cast<int>(text.size()), text.data());
    std::abort();
}

}  // namespace ZEL::fuzz
