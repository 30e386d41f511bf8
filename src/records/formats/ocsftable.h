#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "records/mapping.h"

namespace zel {

// The classes of the Open Cybersecurity Schema Framework, and what their activities are in records.
// One table for both directions: a row's event number is the schema's type_uid, which is the class
// times 100 and the activity. `low32` stands for numbers that the schema holds as text.
//
// Hashes have names of their own here, FILE.hashes.MD5 and FILE.hashes.SHA-256, since the schema
// has them in an array of objects.
extern const MappingTable ocsfTable;

constexpr std::uint32_t ActivityOf(std::uint32_t typeUid) {
    return typeUid % 100;
}
constexpr std::uint32_t ClassOf(std::uint32_t typeUid) {
    return typeUid / 100;
}
constexpr std::uint32_t otherActivity = 99;  // one that the schema doesn't name

// Who the writer says has made an event, and what a failed one says of itself (status_id).
constexpr std::string_view ocsfProduct = "ZELStore";
constexpr std::string_view ocsfFailure = "2";

struct OcsfClass {
    std::string_view name;
    std::uint32_t uid = 0;
    std::uint32_t category = 0;
};
std::span<const OcsfClass> OcsfClasses();

// The row that reads and writes this; null when the schema has no class for the object. For an
// action without an activity of its own, the row of the class's other activity.
const MappingRow* OcsfRowFor(std::string_view objectType, std::string_view action);
// The action of records with this name, which outlives all; empty when there is none.
std::string_view OcsfActionNamed(std::string_view name);

// The two numberings of the types of registry values.
struct OcsfRegistryType {
    std::string_view name;  // REG_SZ
    std::uint32_t windows = 0;
    std::uint32_t ocsf = 0;
};
std::span<const OcsfRegistryType> OcsfRegistryTypes();

}  // namespace zel
