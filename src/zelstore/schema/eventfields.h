#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "common/result.h"
#include "zelstore/keys/keyfield.h"
#include "zelstore/schema/event.h"

// What an event says, in the terms of keys: the facts of a record, which make its key, and the
// conditions of a sub-query, which rows are tested for. Nothing here reads or writes anything but
// its arguments; what a machine has to say to a path is asked of an expander that is handed in.

namespace ZEL::Schema {

// Conditions of a sub-query: by field name, and by value in byte order. All UTF-8.
using FilterMap = std::map<std::string, std::map<std::string, Operator>>;

// The concrete paths that one path of a query stands for on a machine. Called for each path value
// of a query, never for records. Any thread that runs a query may call it, so it must hold nothing
// or guard what it holds.
class IPathExpander {
public:
    virtual ~IPathExpander() = default;
    // Called for each condition. What it throws ends the extraction.
    virtual void OnValue() {}
    // Adds the variants of a file path. With `isPattern` it is a regular expression, and so are
    // they. A failure means that the path stands for itself. `out` is empty at the call.
    virtual HRESULT ExpandPath(const Text& path, bool isPattern, std::set<Text>& out) = 0;
    // The same for a registry path. A failure ends the extraction.
    virtual HRESULT ExpandRegistryPath(const Text& path, bool isPattern, std::set<Text>& out) = 0;
};

// The conditions that `event` states. An absent source leaves its field out; a present one without
// values gives an empty list. `expander` is asked for queries only, and may be null for records.
// 0x8000FFFF for text that is not Unicode. On failure `out` holds the fields before the one that
// failed. What the expander throws passes through.
HRESULT ExtractKeyFields(const Event& event, bool forQuery, IPathExpander* expander,
                         FilterMap& out);

// The facts of a record: of each field the first value in byte order, which is what its key takes.
//
// One object serves one record after the other, for one thread: texts lie behind one another in one
// piece of memory, so that a record costs no allocation once the largest has been seen.
class RecordFields {
public:
    // None when the record has no such field. The view holds until the next Offer or Clear.
    std::optional<std::string_view> Find(KeyField field) const noexcept {
        const Place& place = places_[IndexOf(field)];
        if (place.at == std::string::npos)
            return std::nullopt;
        return std::string_view(texts_.data() + place.at, place.size);
    }
    // Keeps the value when it is the field's first, or stands ahead of the one it has.
    void Offer(KeyField field, std::string_view value);
    void Clear() noexcept;  // keeps its memory for the next record

private:
    struct Place {
        std::size_t at = std::string::npos;
        std::size_t size = 0;
    };
    std::string texts_;  // of all fields, one behind the other
    Place places_[keyFieldCount];
};
// Whether an event's texts may be no Unicode, as those that the JSON library read may.
enum class TextCheck { needed, done };

// The same failures. Adds to what `out` holds: clear it for each record. Paths stand as the sensor
// wrote them.
HRESULT ExtractRecordFields(const Event& event, TextCheck check, RecordFields& out);

// Whether a value holds * or ?. Every * and ? counts: there is no way to write one that stands for
// itself under `equals`.
bool HasWildcard(const Text& value) noexcept;

// A value with * and ? as a regular expression that matches the same texts, not anchored. A ?
// stands for one byte of UTF-8, and * for any text, also none.
Text WildcardToPattern(const Text& value);

}  // namespace ZEL::Schema
