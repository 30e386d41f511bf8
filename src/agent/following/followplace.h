#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Places in the order of acceptance. Each accepted record has a receive-time key, and these only
// ever grow, so a place is a text that is compared with them: what is wanted are the rows whose key
// is not below it.
namespace zel {

// The place right behind a row.
std::string PlaceBehind(std::string_view receiveKey);
// The place right ahead of a row.
std::string PlaceAhead(std::string_view receiveKey);
// Ahead of all rows of that time, which has the form of keys.
std::string PlaceAtTime(std::string_view time);

// What people and programs are told of a place, and come back with: the time and the number of the
// last row ahead of it, as TIME/NUMBER, or a time alone.
std::string PositionOf(std::string_view place);
// None for what is no such text.
std::optional<std::string> PlaceOf(std::string_view position);

// The first row that may be wanted, for a walk of the store.
struct WalkStart {
    std::string_view time;  // a view into the place
    std::uint32_t number = 0;
};
WalkStart WalkStartOf(std::string_view place);

}  // namespace zel
