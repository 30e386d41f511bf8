#pragma once

#include <array>
#include <cstdint>
#include <optional>
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

// The fields of one key, as views into it: the key's bytes must outlive their use. Pieces are split
// off from the key's end, only as far as they are asked for, and nothing is allocated. For one
// thread.
class KeyFields {
public:
    // The value of the last piece with this name; none when the key has no such field.
    std::optional<std::string_view> Find(std::string_view name) const noexcept;

private:
    friend void SplitKeyFields(std::string_view key, KeyFields* fields) noexcept;

    // More than any key of this store has; what a stranger's key has beyond is split anew for each
    // field.
    static constexpr std::size_t mostPieces = 24;
    mutable std::array<std::string_view, mostPieces> pieces_;  // the key's last comes first
    mutable std::size_t count_ = 0;
    mutable std::optional<std::string_view> rest_;  // none when all is split
};

// Splits at each '<' and each piece at each '>'; only pieces of exactly two parts count, and a
// later one replaces an earlier one of its name.
void SplitKeyFields(std::string_view key, KeyFields* fields) noexcept;

// A field as a query sees it: type_id and a missing target_type_id are worked out from the object
// type. 0x80004005 for an absent field; success may leave `*value` empty. Views into the key or of
// constant texts.
HRESULT GetKeyField(const KeyFields& fields, std::string_view name,
                    std::string_view* value) noexcept;

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
