#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

// The store takes records as they are. These are the looks that a person who hands them in would
// want somebody to take, since the store would misplace or replace what they find.
namespace zel {

// Why a record with this key could not be found by its time; empty when it can. The store compares
// times as text, so only the one form works: 2026-11-12T10:00:00.000Z, from 1601 on.
std::string WhyBadTime(std::string_view key);

// Finds records whose key another record had before: the store keeps the later one only. Looks at
// records of one time, which stand together in what sensors send, so its memory stays small.
class RepeatedKeys {
public:
    // Whether this record replaces another one. The same record again replaces nothing.
    bool Replaces(std::string_view key, std::string_view record);

private:
    std::string time_;
    std::unordered_map<std::string, std::size_t> hashes_;  // of the records, by key
};

}  // namespace zel
