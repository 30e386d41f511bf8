#include "agent/following/followplace.h"

#include <algorithm>
#include <charconv>

#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/receivekey.h"

// A place has one of two forms. Behind a row it is that row's key and one more character: greater
// than the key, and smaller than any that follows, since all keys are of one length. At a time it
// is the beginning that the keys of that time have in common.

namespace zel {

namespace {

constexpr char behindMark = '0';
constexpr std::string_view timeForm = "0000-00-00T00:00:00.000Z";

bool IsKeyTime(std::string_view text) {
    if (text.size() != timeForm.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (timeForm[i] == '0' ? !isDigit : text[i] != timeForm[i])
            return false;
    }
    return true;
}

std::optional<ZEL::ReceiveKey> RowBefore(std::string_view place) {
    return place.empty() ? std::nullopt : ZEL::ParseReceiveKey(place.substr(0, place.size() - 1));
}

}  // namespace

std::string PlaceBehind(std::string_view receiveKey) {
    std::string place(receiveKey);
    place += behindMark;
    return place;
}

std::string PlaceAhead(std::string_view receiveKey) {
    const auto row = ZEL::ParseReceiveKey(receiveKey);
    return !row || row->sequence == 0
               ? std::string(receiveKey)
               : PlaceBehind(ZEL::MakeReceiveKey(row->time, row->sequence - 1));
}

std::string PlaceAtTime(std::string_view time) {
    return std::string(ZEL::receiveKeyStart).append(time);
}

std::string PositionOf(std::string_view place) {
    if (const auto row = RowBefore(place))
        return std::string(row->time) + "/" + std::to_string(row->sequence);
    return std::string(WalkStartOf(place).time);
}

std::optional<std::string> PlaceOf(std::string_view position) {
    const std::size_t slash = position.find('/');
    const std::string_view time = position.substr(0, slash);
    if (!IsKeyTime(time))
        return std::nullopt;
    if (slash == position.npos)
        return PlaceAtTime(time);
    const std::string_view digits = position.substr(slash + 1);
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
    return PlaceBehind(ZEL::MakeReceiveKey(time, number));
}

WalkStart WalkStartOf(std::string_view place) {
    if (const auto row = RowBefore(place)) {
        const std::uint32_t next = row->sequence == UINT32_MAX ? UINT32_MAX : row->sequence + 1;
        return {row->time, next};
    }
    return {place.substr(std::min(ZEL::receiveKeyStart.size(), place.size())), 0};
}

}  // namespace zel
