#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The keys of receive-time rows, r<receive_time>T<sequence>N. Such a row tells when the store got
// an event and points at the event's own key; in the order of these keys events are sent on.

namespace ZEL {

// The place of a receive-time row. It orders first by time, then by sequence, as the keys do.
struct ReceiveKey {
    std::string_view time;  // a view into the key
    std::uint32_t sequence = 0;
};

// The length of a time in its usual form. 2026-11-12T10:00:00.000Z has it.
inline constexpr std::size_t keyTimeLength = 24;

// `time` is taken as it stands. Only a time of keyTimeLength characters gives a key that
// ParseReceiveKey reads.
std::string MakeReceiveKey(std::string_view time, std::uint32_t sequence);

// Reads what MakeReceiveKey makes of a time in its usual form; none for any other text. Digits of
// the time are not checked: it is only ever compared. A number beyond 32 bits is refused.
std::optional<ReceiveKey> ParseReceiveKey(std::string_view key) noexcept;

// Reads the place from whatever a stranger wrote: the text between the first of the two marks and
// the first of the other, and a number that may be cut short by anything that is no digit. None
// when a mark is missing or they stand the other way round. Where the number is missing, it is 0.
std::optional<ReceiveKey> FindReceivePlace(std::string_view key);

}  // namespace ZEL
