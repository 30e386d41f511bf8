#include "records/conversions.h"

#include <algorithm>
#include <charconv>

#include "common/asciicase.h"
#include "zelstore/keys/typenumbers.h"

// What sources write differently and records write in one way. Each function answers for one text
// and says "none" rather than guess: what is not understood stays in the record's `unmapped`, where
// a guess would be taken for a fact. The tables are short, so they are searched from the front.

namespace zel {

namespace {

struct NamedNumber {
    std::string_view name;
    std::uint32_t number;
};

std::optional<std::uint32_t> NumberOf(std::string_view name, const auto& table) {
    for (const NamedNumber& row : table)
        if (ZEL::EqualsNoCase(row.name, name))
            return row.number;
    return std::nullopt;
}

// The n-th name of the number.
std::string_view NameOf(std::uint64_t number, std::size_t n, const auto& table) noexcept {
    for (const NamedNumber& row : table)
        if (row.number == number && n-- == 0)
            return row.name;
    return {};
}

constexpr NamedNumber protocols[] = {{"tcp", 6},  {"udp", 17},       {"icmp", 1},
                                     {"igmp", 2}, {"ipv6-icmp", 58}, {"icmpv6", 58}};
constexpr NamedNumber serviceWords[] = {
    {"boot start", 0},         {"system start", 1},       {"auto start", 2},
    {"demand start", 3},       {"disabled", 4},           {"kernel mode driver", 1},
    {"file system driver", 2}, {"user mode service", 16},
};

struct RegistryRoot {
    std::string_view written;
    std::string_view name;
};
constexpr RegistryRoot registryRoots[] = {
    {"HKLM", "HKEY_LOCAL_MACHINE"},  {"HKU", "HKEY_USERS"},
    {"HKCR", "HKEY_CLASSES_ROOT"},   {"\\REGISTRY\\MACHINE", "HKEY_LOCAL_MACHINE"},
    {"HKCU", "HKEY_CURRENT_USER"},   {"\\REGISTRY\\USER", "HKEY_USERS"},
    {"HKCC", "HKEY_CURRENT_CONFIG"},
};

std::optional<std::uint64_t> Whole(std::string_view digits, int base) {
    std::uint64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [at, failure] = std::from_chars(digits.data(), end, number, base);
    if (failure != std::errc() || at != end)
        return std::nullopt;
    return number;
}

// Calls `use` with each "NAME=value" of a list until that gives true.
template <typename Use>
void ForEachHash(std::string_view list, Use use) {
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(",;"), list.size());
        const std::string_view part = list.substr(0, end);
        const std::size_t equals = part.find('=');
        if (equals != part.npos && use(part.substr(0, equals), part.substr(equals + 1)))
            return;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

}  // namespace

std::optional<std::uint64_t> NumberIn(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X"))
        return Whole(text.substr(2), 16);
    if (const auto number = Whole(text, 10))
        return number;
    return NumberOf(text, protocols);
}

std::optional<std::uint64_t> ServiceNumberIn(std::string_view text) {
    if (const auto number = NumberIn(text))
        return number;
    return NumberOf(text, serviceWords);
}

std::optional<std::string_view> HashIn(std::string_view list, std::string_view name) {
    std::optional<std::string_view> found;
    ForEachHash(list, [&](std::string_view algorithm, std::string_view value) {
        if (ZEL::EqualsNoCase(algorithm, name) && !value.empty())
            found = value;
        return found.has_value();
    });
    return found;
}

bool HasOnlyKeptHashes(std::string_view list) {
    bool hasOther = false;
    ForEachHash(list, [&](std::string_view algorithm, std::string_view) {
        return hasOther =
                   !ZEL::EqualsNoCase(algorithm, "SHA256") && !ZEL::EqualsNoCase(algorithm, "MD5");
    });
    return !hasOther;
}

std::optional<std::string_view> GuidIn(std::string_view text) {
    if (text.starts_with('{') && text.ends_with('}'))
        text = text.substr(1, text.size() - 2);
    if (std::all_of(text.begin(), text.end(), [](char c) { return c == '0' || c == '-'; }))
        return std::nullopt;
    return text;
}

// Sensors write short roots, audit events those of the kernel; queries ask for the long ones. A
// longer name that begins like a root ("HKLMX") is none.
RegistryPath LongRegistryPath(std::string_view path) {
    for (const RegistryRoot& root : registryRoots)
        if (ZEL::StartsWithNoCase(path, root.written) &&
            (path.size() == root.written.size() || path[root.written.size()] == '\\'))
            return {root.name, path.substr(root.written.size())};
    return {"", path};
}

std::string_view RegistryRootOf(std::string_view longRoot, std::size_t n) noexcept {
    for (const RegistryRoot& root : registryRoots)
        if (root.name == longRoot && n-- == 0)
            return root.written;
    return {};
}

std::string_view WordFor(std::uint64_t number, std::size_t n) noexcept {
    return NameOf(number, n, protocols);
}

std::string_view ServiceWordFor(std::uint64_t number, std::size_t n) noexcept {
    return NameOf(number, n, serviceWords);
}

std::optional<std::uint32_t> RegistryTypeIn(std::string_view text) {
    constexpr NamedNumber names[] = {
        {"REG_NONE", 0},          {"REG_SZ", 1},
        {"REG_EXPAND_SZ", 2},     {"REG_BINARY", 3},
        {"REG_DWORD", 4},         {"REG_DWORD_BIG_ENDIAN", 5},
        {"REG_LINK", 6},          {"REG_MULTI_SZ", 7},
        {"REG_RESOURCE_LIST", 8}, {"REG_FULL_RESOURCE_DESCRIPTOR", 9},
        {"REG_QWORD", 11},        {"REG_RESOURCE_REQUIREMENTS_LIST", 10},
        {"Binary Data", 3},
    };
    constexpr std::uint64_t firstMessage = 1872;  // %%1872 is REG_NONE
    if (text.starts_with("DWORD ("))
        return 4;
    if (text.starts_with("QWORD ("))
        return 11;
    if (text.starts_with("%%")) {
        const auto message = Whole(text.substr(2), 10);
        if (message && *message >= firstMessage && *message <= firstMessage + 11)
            return static_cast<std::uint32_t>(*message - firstMessage);
    }
    return NumberOf(text, names);
}

// A key's fields stand between < and >, and a key ends at its first NUL.
bool IsLostFromKey(std::string_view text) {
    const auto isLost = [](char c) { return c == '<' || c == '>' || c == '\0'; };
    return std::any_of(text.begin(), text.end(), isLost) || text.starts_with(R"(\\?\)");
}

std::optional<std::uint32_t> TypeIdOf(std::string_view objectType) {
    const ZEL::TypeNumber* const row = ZEL::FindTypeNumber(objectType);
    if (row == nullptr)
        return std::nullopt;
    return static_cast<std::uint32_t>(*Whole(row->number, 10));
}

}  // namespace zel
