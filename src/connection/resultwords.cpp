#include "connection/resultwords.h"

#include <cstdio>

// The words have the store's sense of a code and not the system's: 0x80070015, for the system a
// device that is not ready, is a store that was not opened. A code that is not listed here means a
// fault that people seldom meet; its number is then what to search for.

namespace zel {

namespace {

struct Meaning {
    std::uint32_t code;
    const char* text;
};

constexpr Meaning meanings[] = {
    {0x80004005, "failure"},
    {0x8000FFFF, "not understood, or a state that should not occur"},
    {0x80070057, "something required is missing or wrong"},
    {0x8007000E, "out of memory"},
    {0x80070015, "the store is not open"},
    {0x8007000D, "the data is not in the right form"},
    {0x80070004, "too many open files"},
    {0x80070005, "access is denied, or the volume can only be read"},
    {0x80070020, "in use by another process"},
    {0x80070070, "the disk is full"},
    {0x800700AA, "too much to do"},
    {0x800704D4, "the agent is not there"},
    {0x800704D0, "the fleet's answer is not whole"},
    {0x800710E0, "a fleet can't be asked that"},
    {0x800705B4, "its time was over"},
    {0x80070490, "not found"},
    {0x80070570, "the files are corrupt"},
    {0x8007045D, "the device failed"},
    {0x80004004, "aborted"},
    {0x80004001, "not offered by this version"},
    {0x800705B6, "a time has the wrong length"},
};

}  // namespace

std::string Describe(std::int32_t result) {
    const auto code = static_cast<std::uint32_t>(result);
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(code));
    for (const Meaning& meaning : meanings)
        if (meaning.code == code)
            return std::string(meaning.text) + " (" + text + ")";
    return text;
}

}  // namespace zel
