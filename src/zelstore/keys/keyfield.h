#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// The fields of keys, listed once. Who makes a key, reads one, takes facts from an event or puts
// conditions to a row takes names and order from here. A new field is an enumerator, its row, and,
// where records shall have it in their keys, a place in the order.

namespace ZEL {

// In the order of their constants, which no key depends on.
enum class KeyField : std::uint8_t {
    beginTime,    // when the event happened, by its own words
    receiveTime,  // when the store got it; in receive-time rows alone
    sequence,     // ten digits: the event's number, or a receive-time row's
    objectType,   // what the target is, a name of the vocabulary
    action,       // what was done, the same
    actorHash,    // SHA-2, as the sensor wrote it
    actorPathName,
    actorUid,        // of a process
    typeId,          // never written: told by object type and action
    targetHash,      // SHA-2
    targetPathName,  // or the name of a kernel object
    targetSourceIp,  // of a connection
    targetDestinationIp,
    targetTypeId,      // of a kernel object; told where it is missing
    targetUrlText,     // from properties alone
    silentSequence,    // ten digits: the number of an enrichment
    correlationUid,    // in upper case, but for events that come as properties
    silentEnrichment,  // 1 for a silent enrichment, 0 for a live one
};
// For arrays with a place for each; the check at this file's end ties it to the rows.
inline constexpr std::size_t keyFieldCount = 18;

// What the makers and readers of keys have to know of a field. Both widths of each text stand
// ready, since keys are made on the insert path, where a conversion for each field would show.
struct KeyFieldRow {
    KeyField field;
    std::string_view name;
    std::wstring_view wideName;
    std::string_view mark;  // <name>, which stands in front of the value
    std::wstring_view wideMark;
    char tag;  // |tag holds the value's place while a key is made
    // Near the key's start, or worked out from what stands there. Keys are split from their end,
    // so such a field costs the most to find.
    bool standsEarly;
};

// Marks and the wide texts follow from the name, so that a row can't contradict itself.
#define ZEL_KEY_FIELD(field, name, tag, standsEarly)                                      \
    KeyFieldRow {                                                                         \
        KeyField::field, name, L##name, "<" name ">", L"<" L##name L">", tag, standsEarly \
    }

// By KeyField. No two rows share a tag, and none ever changes: where a value holds one, it decides
// what the key becomes (MakePrimaryKey).
inline constexpr std::array<KeyFieldRow, keyFieldCount> keyFieldTable = {
    ZEL_KEY_FIELD(beginTime, "begin_time", 'A', true),
    ZEL_KEY_FIELD(receiveTime, "receive_time", 'C', true),
    ZEL_KEY_FIELD(sequence, "sequence", 'B', true),
    ZEL_KEY_FIELD(objectType, "object_type", 'D', true),
    ZEL_KEY_FIELD(action, "action", 'E', true),
    ZEL_KEY_FIELD(actorHash, "actor_hash", 'F', false),
    ZEL_KEY_FIELD(actorPathName, "actor_path_name", 'G', false),
    ZEL_KEY_FIELD(actorUid, "actor_uid", 'N', false),
    ZEL_KEY_FIELD(typeId, "type_id", 'P', true),
    ZEL_KEY_FIELD(targetHash, "target_hash", 'H', false),
    ZEL_KEY_FIELD(targetPathName, "target_path_name", 'I', false),
    ZEL_KEY_FIELD(targetSourceIp, "target_source_ip", 'J', false),
    ZEL_KEY_FIELD(targetDestinationIp, "target_destination_ip", 'K', false),
    ZEL_KEY_FIELD(targetTypeId, "target_type_id", 'Q', true),
    ZEL_KEY_FIELD(targetUrlText, "target_url_text", 'R', false),
    ZEL_KEY_FIELD(silentSequence, "silent_sequence", 'L', false),
    ZEL_KEY_FIELD(correlationUid, "correlation_uid", 'M', false),
    ZEL_KEY_FIELD(silentEnrichment, "silent_enrichment", 'O', false),
};
#undef ZEL_KEY_FIELD

// What each key of an event begins with, in this order; a key that lacks one is cut off. The order
// is part of the stored form: time and sequence ahead of all else make byte order time order.
inline constexpr KeyField requiredKeyFields[] = {KeyField::beginTime, KeyField::sequence,
                                                 KeyField::objectType, KeyField::action};
// What follows in the key of a JSON record, as far as the record has it. Events that come as
// properties have an order of their own (keymaker.cpp).
inline constexpr KeyField optionalKeyFields[] = {
    KeyField::actorHash,      KeyField::actorPathName,  KeyField::targetHash,
    KeyField::targetPathName, KeyField::targetSourceIp, KeyField::targetDestinationIp,
    KeyField::correlationUid, KeyField::actorUid,
};

// Where a field stands in arrays that have a place for each.
constexpr std::size_t IndexOf(KeyField field) noexcept {
    return static_cast<std::size_t>(field);
}

// Valid as long as the module.
constexpr const KeyFieldRow& RowOf(KeyField field) noexcept {
    return keyFieldTable[IndexOf(field)];
}

// The name as conditions and readers of keys use it, without the marks.
constexpr std::string_view KeyFieldName(KeyField field) noexcept {
    return RowOf(field).name;
}

// By the text between < and >. None for a name that is in no row. The match is exact: names of
// fields have one spelling in keys, documents and conditions.
constexpr std::optional<KeyField> FindKeyField(std::string_view name) noexcept {
    for (const KeyFieldRow& row : keyFieldTable)
        if (row.name == name)
            return row.field;
    return std::nullopt;
}

// RowOf takes the enumerator for the row's place; a field that was added to one of the two lists
// alone must not compile.
constexpr bool IsKeyFieldTableInOrder() noexcept {
    for (std::size_t i = 0; i < keyFieldCount; ++i)
        if (IndexOf(keyFieldTable[i].field) != i || keyFieldTable[i].name.empty())
            return false;
    return true;
}
static_assert(IsKeyFieldTableInOrder());

}  // namespace ZEL
