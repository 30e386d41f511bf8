#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zel {

// Where an event stands among all: by its time, then its number, then by a number made of its key,
// so that no two events share a place.
struct EventPlace {
    std::int64_t time = 0;  // milliseconds since 1970; 0 for a key without a time
    std::uint64_t sequence = 0;
    std::uint64_t hash = 0;
    // The linter takes the comparison with zero that this stands for as one with a null pointer.
    auto operator<=>(const EventPlace&) const = default;  // NOLINT(modernize-use-nullptr)
};
// As page and server pass it: three numbers. None for any other text.
std::string ToText(const EventPlace& place);
std::optional<EventPlace> ReadEventPlace(std::string_view text);

// What stands at the begin of an event's key. Views into it.
struct EventKeyHead {
    std::int64_t time = 0;
    std::uint64_t sequence = 0;
    std::string_view object, action;
};

// Reads one key after the other; keys of one minute cost least. For one thread.
class EventKeyReader {
public:
    EventKeyHead Read(std::string_view key);
    // With the whole place, for which all of the key is looked at.
    static EventPlace PlaceOf(const EventKeyHead& head, std::string_view key);

private:
    std::int64_t TimeOf(std::string_view text);

    std::string minute_;  // "2026-11-12T10:00:"
    std::int64_t minuteTime_ = 0;
};

}  // namespace zel
