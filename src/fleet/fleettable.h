#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "zelstore/keys/keyfield.h"

// The tables of a fleet, told once: who makes them, checks them, fills them or asks them takes the
// columns from here.

namespace zel::fleet {

inline constexpr std::string_view eventsTable = "events";
inline constexpr std::string_view enrichmentsTable = "enrichments";

struct FleetColumn {
    std::string_view name;
    std::string_view type;  // as each server knows it
    // For newer servers: how the column is packed, and that values which repeat are kept once.
    std::string_view codec;
    bool isRepeating = false;
    // The field of a row's key that it holds, as the key splits (GetKeyField); none for others.
    std::optional<ZEL::KeyField> field;
    // What `present` holds when the key has the field; 0 for a column that each row has.
    std::uint16_t presentBit = 0;
};

// Those that are sent, in order. They live as long as the program.
//
//   events       host, receive_ms (milliseconds since 1970) and receive_no of the row by time of
//                receipt, the fields of the key, present, key, event (its text)
//   enrichments  host, sent_ms (when it was sent, milliseconds since 1970: of several under a key
//                the latest counts), begin_time of the event, base_key (the event's key), key (its
//                own), live (1 for a key whose mark says that it is not silent, else 0), text
std::span<const FleetColumn> EventColumns();
std::span<const FleetColumn> EnrichmentColumns();
// The column that conditions on a field are put to: also those that are worked out. Empty for a
// field that has none.
std::string_view ColumnOf(ZEL::KeyField field);
// 0 for a field that each row has.
std::uint16_t PresentBitOf(ZEL::KeyField field);

struct FleetTableForm {
    // For servers before codecs, indexes and the like: 18.16.
    bool isOld = false;
    // Not empty: replicated tables on all nodes of that cluster, and a distributed one over each.
    std::string cluster;
    // How long rows stay behind their receipt; 0: for ever. Older servers keep them for ever.
    unsigned retentionDays = 90;
};
// Whether a server of this version ("18.16.1") is one of the older ones.
bool IsOldServer(std::string_view version);
// The statements that make the tables, in order. Each leaves a table of its name as it is. None has
// a semicolon.
std::vector<std::string> TableStatements(const FleetTableForm& form);

}  // namespace zel::fleet
