#include "zel/terminal/sizearg.h"

#include <charconv>
#include <limits>

#include "common/asciicase.h"

namespace zel {

namespace {

struct Unit {
    char letter;
    std::uint64_t megabytes;
};

// Of 0x100000 bytes, as the store's own limit is.
constexpr Unit units[] = {{'M', 1}, {'G', 1024}, {'T', 1024ULL * 1024}};

// M, or MiB in full. MB is refused, since for some it is a million bytes.
bool IsUnit(std::string_view text, char letter) {
    return ZEL::ToUpperAscii(text.front()) == letter &&
           (text.size() == 1 || (text.size() == 3 && ZEL::ToUpperAscii(text[1]) == 'I' &&
                                 ZEL::ToUpperAscii(text[2]) == 'B'));
}

}  // namespace

bool ParseMegabytes(std::string_view text, std::uint32_t* megabytes) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc())
        return false;
    const std::string_view suffix(parsed.ptr, static_cast<std::size_t>(end - parsed.ptr));
    if (suffix.empty()) {
        *megabytes = 0;
        return number == 0;
    }
    for (const Unit& unit : units) {
        if (!IsUnit(suffix, unit.letter) || number > most / unit.megabytes)
            continue;
        *megabytes = static_cast<std::uint32_t>(number * unit.megabytes);
        return true;
    }
    return false;
}

}  // namespace zel
