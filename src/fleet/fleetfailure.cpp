#include "fleet/fleetfailure.h"

#include <algorithm>
#include <charconv>

// The codes of the server. Those that are in no row are told to a person: rows are then neither
// sent for ever nor thrown away.

namespace zel::fleet {

namespace {

constexpr int againCodes[] = {3,   23,  33,  159, 160, 202, 209, 210, 225, 236,
                              242, 243, 279, 285, 286, 319, 394, 439, 999};
constexpr int tooManyParts = 252;
constexpr int outOfMemory = 241;
constexpr int dataCodes[] = {6, 25, 26, 27, 38, 41, 53, 72, 117};
constexpr int againStatuses[] = {408, 429, 502, 503, 504};
constexpr int tooLarge = 413;

template <std::size_t Count>
bool IsOneOf(const int (&codes)[Count], int code) {
    return std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
}

}  // namespace

FleetRemedy RemedyFor(int code, int status) noexcept {
    if (code == tooManyParts)
        return FleetRemedy::later;
    if (code == outOfMemory || (code == 0 && status == tooLarge))
        return FleetRemedy::halves;
    if (IsOneOf(dataCodes, code))
        return FleetRemedy::aside;
    const bool isNoAnswer = code == 0 && status == 0;
    if (isNoAnswer || IsOneOf(againCodes, code) || (code == 0 && IsOneOf(againStatuses, status)))
        return FleetRemedy::again;
    return FleetRemedy::stop;
}

int CodeIn(std::string_view message) noexcept {
    constexpr std::string_view mark = "Code: ";
    int code = 0;
    if (message.starts_with(mark))
        std::from_chars(message.data() + mark.size(), message.data() + message.size(), code);
    return code;
}

std::string ShownMessage(std::string_view message) {
    constexpr std::size_t longest = 400;
    std::string shown;
    for (const char c : message.substr(0, longest)) {
        const bool isControl = static_cast<unsigned char>(c) < ' ' || c == 0x7F;
        if (!isControl)
            shown += c;
        else if (!shown.empty() && shown.back() != ' ')
            shown += ' ';
    }
    while (shown.ends_with(' '))
        shown.pop_back();
    return shown + (message.size() > longest ? "..." : "");
}

}  // namespace zel::fleet
