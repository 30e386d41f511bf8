#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "common/result.h"

namespace ZEL {

// Row families of an event database, by the letter that their keys begin with.
inline constexpr std::int32_t familyPrimary = 0;  // p
inline constexpr std::int32_t familyReceive = 1;  // r

// "p" or "r"; 0x80070057 for any other family.
HRESULT FamilyPrefix(std::int32_t family, std::string* prefix);

// The smallest key of a family at or behind a time and a sequence number. `time` is taken as it
// stands. 0x80070057 for an unknown family.
HRESULT MakeScanStartKey(std::int32_t family, std::string_view time, std::uint32_t sequence,
                         std::string* key);

// The date of a primary key's begin_time as YYYYMMDD; 0x80004005 for a key that has none. Digits
// are not checked.
HRESULT ExtractKeyDate(std::string_view key, std::string* date);

// Fields of a key by name. Values are those of the key, so both are UTF-8 when the key is.
using KeyFields = std::map<std::string, std::string, std::less<>>;

// Splits at each '<' and each piece at each '>'; only pieces of exactly two parts count, and a
// later one replaces an earlier one of its name.
void SplitKeyFields(std::string_view key, KeyFields* fields);

// A field as a query sees it: type_id and a missing target_type_id are worked out from the object
// type. 0x80004005 for an absent field; success may leave `*value` empty.
HRESULT GetKeyField(const KeyFields& fields, std::string_view name, std::string* value);

// Builds a key from templates. A field is appended as <name>|X and then set: the first |X in the
// whole key so far becomes the value, wherever it stands.
class KeyTemplate {
public:
    explicit KeyTemplate(std::string text) : key_(std::move(text)) {}
    void Append(std::string_view templateText) { key_.append(templateText); }
    void Set(char tag, std::string_view value);
    std::string Take() { return std::move(key_); }

private:
    std::string key_;
};

// 10 decimal digits with leading zeros.
std::string TenDigits(std::uint32_t number);

}  // namespace ZEL
