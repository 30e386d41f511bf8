#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/result.h"
#include "zelstore/keys/keyfield.h"

namespace ZEL {

// Row families of an event database, and what their keys begin with.
inline constexpr std::int32_t familyPrimary = 0;
inline constexpr std::int32_t familyReceive = 1;
inline constexpr char primaryPrefix = 'p';
inline constexpr char receivePrefix = 'r';

// How each key of an event, and each key of a receive-time row, begins. Readers go by these texts
// whole, so that a stranger's row that only begins with the letter is told from the store's own.
inline constexpr std::string_view eventKeyStart = "p<begin_time>";
inline constexpr std::string_view receiveKeyStart = "r<receive_time>";

// 0x80070057 for any other family. `*prefix` then stays as it was.
HRESULT FamilyPrefix(std::int32_t family, std::string* prefix);

// What a text is as a key, by what it begins with and the fields that it names. Nobody checks the
// values of a key.
enum class KeyShape {
    primary,
    cutOff,      // begins like a primary key and lacks a required field
    enrichment,  // a primary key with an enrichment's number behind it
    receive,
    none,
};
// For those who show or check keys that others made; the insert path does not ask.
KeyShape ShapeOf(std::string_view key) noexcept;

// The time of a key that begins like a primary one, as it stands there; empty for other texts.
std::string_view BeginTimeOf(std::string_view key) noexcept;

// The smallest key of a family at or behind a time and a sequence number. `time` is taken as it
// stands. 0x80070057 for an unknown family. A time of another form than the store's own is no
// failure: the walk then begins where its text would stand in byte order.
HRESULT MakeScanStartKey(std::int32_t family, std::string_view time, std::uint32_t sequence,
                         std::string* key);

// The date of a primary key's begin_time as YYYYMMDD; 0x80004005 for a key that has none. Digits
// are not checked.
HRESULT ExtractKeyDate(std::string_view key, std::string* date);

// The values of a key's fields, by KeyField; a field without one is left out.
using KeyValues = std::array<std::optional<std::string_view>, keyFieldCount>;

// The primary key of a JSON record. The required fields must have a value. While the key is made
// each value takes the place of the first |tag of its kind in the whole key so far, which may stand
// in a value that was put there before. That is how keys have always come out, and a record that is
// sent again has to get the key that it had.
void MakePrimaryKey(const KeyValues& values, std::string* key);

// What stands behind an event's key in the key of an enrichment of it. Append it to the key as the
// event has it: readers go by the common start.
std::string EnrichmentSuffix(std::uint32_t number);
std::string FlaggedEnrichmentSuffix(std::uint32_t number, bool silent);
// The same, numbered by the clock. In byte order these stand behind all with a counter, and among
// themselves in the order of their times. `microseconds` since 1970, not negative.
std::string TimedEnrichmentSuffix(std::int64_t microseconds, bool silent);

// Numbers in keys: decimal digits with leading zeros. Ten hold any number of 32 bits.
inline constexpr std::size_t keyDigits = 10;
// Any number of 32 bits fits, so that byte order is the order of numbers.
std::string TenDigits(std::uint32_t number);

}  // namespace ZEL
