#pragma once

#include <span>
#include <string_view>

#include "records/eventtime.h"
#include "records/mapping.h"
#include "records/recordwriter.h"

namespace zel {

// The parts of a record that do not depend on what the event is: what has no place in it, and where
// it came from. Behind the other members.
void WriteUnmapped(SourceFields& fields, RecordWriter& writer);
void WriteSource(const EventHead& head, RecordWriter& writer);

// The values of an array stand behind one another; a field that stands alone is its only value.
std::span<SourceField> ValuesOf(SourceField& first, SourceFields& fields);

// Writes the record of one event to the end of its item's. Made for one event; what it is given
// outlives it.
class RecordMaking {
public:
    RecordMaking(Mapper& mapper, SourceFields& fields, SourceItem* item)
        : mapper_(mapper), fields_(fields), item_(*item), writer_(&item->record) {}

    void Write(const MappingTable& table, const MappingRow& row, const EventTime& time,
               const EventHead& head, std::uint32_t number);

private:
    // What one object has of a process's identity, for the hashes that are carried.
    struct Seen {
        std::string_view uid, sha2, md5;
    };

    // All of these mark what they have written wholly as taken.
    void Object(std::string_view role, std::string_view type, std::span<const Member> members);
    bool HasIdentity(std::span<const Member> members);
    void Write(const Member& member);
    void WriteText(const Member& member, SourceField& field);
    void WriteHash(const Member& member, SourceField& field, std::string_view algorithm);
    void WriteGuid(const Member& member, SourceField& field);
    void WriteType(const Member& member, SourceField& field);
    void WriteNumber(const Member& member, SourceField& field);
    void WritePath(const Member& member, SourceField& field);
    void WriteJoined(const Member& member);
    void PairOf(std::string_view name, std::string_view text);
    void CarryHashes();
    void Correlation(std::string_view name);

    Mapper& mapper_;
    SourceFields& fields_;
    SourceItem& item_;
    RecordWriter writer_;
    bool carriesHashes_ = false;
    Seen seen_;
};

}  // namespace zel
