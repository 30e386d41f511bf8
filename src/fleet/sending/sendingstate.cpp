#include "fleet/sending/sendingstate.h"

#include <charconv>
#include <cstdio>
#include <string_view>

#include "agent/following/followplace.h"
#include "common/filesystem.h"
#include "common/textbridge.h"
#include "connection/resultwords.h"

namespace zel::fleet {

namespace {

bool ReadNumber(std::string_view text, std::uint64_t* number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

// One line, NAME VALUE. False for what no version writes.
bool TakeLine(std::string_view line, SendingState* state) {
    const std::size_t blank = line.find(' ');
    if (blank == line.npos)
        return false;
    const std::string_view name = line.substr(0, blank), value = line.substr(blank + 1);
    if (name == "fleet" || name == "host") {
        (name == "fleet" ? state->fleet : state->host) = value;
        return true;
    }
    if (name == "position") {
        const auto place = PlaceOf(value);
        state->place = place.value_or("");
        return place.has_value();
    }
    if (name == "enrichments") {
        const std::size_t behind = value.find(' ');
        if (behind == value.npos)
            return false;
        state->folders[std::string(value.substr(0, behind))] = value.substr(behind + 1);
        return true;
    }
    std::uint64_t* const number = name == "sent"      ? &state->sent
                                  : name == "refused" ? &state->refused
                                  : name == "missed"  ? &state->missed
                                                      : nullptr;
    return number != nullptr && ReadNumber(value, number);
}

bool Parse(std::string_view text, SendingState* state) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end == text.npos || !TakeLine(text.substr(0, end), state))
            return false;
        text.remove_prefix(end + 1);
    }
    return !state->fleet.empty();
}

}  // namespace

bool StateFile::Load(SendingState* state, bool* isThere, std::string* problem) const {
    std::wstring name;
    *isThere = wm::ToWide(name_, name) && wm::FileExists(name);
    if (!*isThere)
        return true;
    std::string text;
    SendingState read;
    if (const ZEL::HRESULT result = wm::ReadWholeFile(name, &text); Failed(result))
        *problem =
            name_ + ": the position can't be read: " + Describe(static_cast<std::int32_t>(result));
    else if (!Parse(text, &read))
        *problem = name_ + ": this is no position; without the file, sending begins anew";
    else if (read.fleet != state->fleet || read.host != state->host)
        *problem = name_ + ": this is the position of the host " + read.host + " at " + read.fleet +
                   "; --position names another file";
    else
        *state = std::move(read);
    return problem->empty();
}

bool StateFile::Save(const SendingState& state, std::string* problem) const {
    std::string text = "fleet " + state.fleet + "\nhost " + state.host + "\n";
    if (!state.place.empty())
        text += "position " + PositionOf(state.place) + "\n";
    text += "sent " + std::to_string(state.sent) + "\nrefused " + std::to_string(state.refused) +
            "\nmissed " + std::to_string(state.missed) + "\n";
    for (const auto& [folder, look] : state.folders)
        text.append("enrichments ").append(folder).append(" ").append(look).append("\n");
    std::wstring name;
    const ZEL::HRESULT result =
        wm::ToWide(name_, name) ? wm::ReplaceWholeFile(name, text) : ZEL::hr::invalidArgument;
    if (Failed(result))
        *problem =
            name_ + ": the position can't be kept: " + Describe(static_cast<std::int32_t>(result));
    return Succeeded(result);
}

std::string NameOf(const FleetAddress& address) {
    return address.url + "/" + address.database;
}

std::string StateFileName(const FleetAddress& address, const std::string& host) {
    std::uint64_t hash = 0xCBF29CE484222325;  // FNV-1a: the same in each build
    for (const char c : NameOf(address) + "\n" + host)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    char digits[17];
    std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(hash));
    return std::string("zel.position-fleet-") + digits;
}

}  // namespace zel::fleet
