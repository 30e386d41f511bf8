#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/eventkind.h"
#include "records/mapping.h"

namespace zel {

// Where a record has what a field of its source said. Texts are constants.
struct FieldPlace {
    enum class Kind : std::uint8_t {
        member,      // artifacts.ROLE.MEMBER, and with an empty role a member of the record
        parent,      // the same without its last name, which is that of `other`
        hashList,    // made of the hashes that artifacts.ROLE has
        hashOfList,  // what a list of hashes in `unmapped` says of the algorithm MEMBER
        source,      // source.MEMBER
        provider,    // the name of what wrote the event
        time,        // begin_time
        unmapped,    // unmapped.MEMBER
        argument,    // of an audit log: the argument MEMBER ("a1") of the command line
        lineTypes,   // of an audit log: the types of the event's lines
        constant,    // MEMBER itself: the event would be of another kind otherwise
    };
    Kind kind = Kind::member;
    std::string_view role = {};
    std::string_view member = {};
    Conversion conversion = Conversion::text;
    std::string_view other = {};
};

// The places of a field in events of the kind, beside that in `unmapped` under its own name: the
// first that has a value counts. They are read from the tables that make records.
std::vector<FieldPlace> PlacesOf(const EventKind& kind, std::string_view field);

// The name that a field of `unmapped` has in rules: without what other formats put in front.
std::string_view RuleNameOf(const EventKind& kind, std::string_view unmappedName) noexcept;

// Whether every event of a channel has a field of that name, whatever else it has.
bool IsOfEveryEvent(std::string_view field) noexcept;

}  // namespace zel
