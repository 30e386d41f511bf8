#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zel {

// The conversions of texts that sources write into what records hold. Nothing is allocated; views
// are of the argument or of constants. None stands for a text that says no such thing.

// Decimal, 0x with hex digits, or the name of a protocol (tcp: 6).
std::optional<std::uint64_t> NumberIn(std::string_view text);
// Also how services are told in words: "demand start" is 3.
std::optional<std::uint64_t> ServiceNumberIn(std::string_view text);

// Of "SHA1=..,SHA256=..": the value behind the name, whose case does not count.
std::optional<std::string_view> HashIn(std::string_view list, std::string_view name);
// Whether the list has no hashes but SHA256 and MD5.
bool HasOnlyKeptHashes(std::string_view list);

// Without braces. None for one of zeros alone, which sources write where they know no GUID.
std::optional<std::string_view> GuidIn(std::string_view text);

// "HKLM\x" is "HKEY_LOCAL_MACHINE" and "\x"; with an unknown root the first part is empty.
struct RegistryPath {
    std::string_view root;
    std::string_view rest;
};
RegistryPath LongRegistryPath(std::string_view path);

// Back again: how sources may have written what records hold.
// The names of roots that stand for the long one, the n-th of them; empty past the last.
std::string_view RegistryRootOf(std::string_view longRoot, std::size_t n) noexcept;
// The words that ServiceNumberIn and NumberIn take for the number, the n-th of them; empty past the
// last.
std::string_view WordFor(std::uint64_t number, std::size_t n) noexcept;
std::string_view ServiceWordFor(std::uint64_t number, std::size_t n) noexcept;

// The number of the type of a registry value: by its name (REG_DWORD), by the number in Windows'
// texts (%%1876), or by how the value is shown ("DWORD (0x00000001)"). None for a text that tells
// no type.
std::optional<std::uint32_t> RegistryTypeIn(std::string_view text);

// Whether a key can't hold the text: it would lose the field, or its end.
bool IsLostFromKey(std::string_view text);

// The type number of events with a target of this type; none for types without one.
std::optional<std::uint32_t> TypeIdOf(std::string_view objectType);

}  // namespace zel
