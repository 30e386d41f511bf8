#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "records/recordsource.h"
#include "records/sourcefields.h"

namespace zel {

// How events of a source become records: tables, and the one engine that reads them. A table is a
// constant, and one row of it says what one kind of event becomes. The first row that fits is
// taken. Names of fields are found as SourceFields::Find does it, so without regard to case.

// How a value of the source becomes one of the record.
enum class Conversion : std::uint8_t {
    text,          // a pair with the text
    number,        // a pair; decimal, 0x..., or the name of a protocol
    low32,         // a pair with the low 32 bits of a number
    sha256,        // a pair with the SHA256 of a list like "SHA1=..,SHA256=.."
    md5,           // the same with the MD5
    guid,          // a pair with the text without braces; only zeros are as if absent
    registryPath,  // a pair; with the long name of the root
    registryName,  // a pair with what stands behind the last backslash
    registryType,  // the number of the type of a registry value, plain
    plainText,     // no pair
    plainNumber,   // as `number`; also words of services such as "demand start"
    plainNumbers,  // the same in an array
    constant,      // `from` is the JSON itself
};

// A member of an object.
struct Member {
    std::string_view name;
    Conversion conversion;
    // The field. "a|b": the first that is there. "a+b": both, with a backslash between.
    std::string_view from;
};

// What must hold of a field for a row to fit. A missing field is as an empty text. Of an array any
// value will do.
struct Condition {
    std::string_view field;  // or "a|b": the first that is there
    bool (*test)(std::string_view value, std::string_view wanted);
    std::string_view wanted;
};
// The usual tests. Case is that of ASCII; `wanted` may be "a|b".
bool Is(std::string_view value, std::string_view wanted);
bool IsNoCase(std::string_view value, std::string_view wanted);
bool HasNoCase(std::string_view value, std::string_view wanted);  // anywhere within
bool IsNot(std::string_view value, std::string_view wanted);
bool IsThere(std::string_view value, std::string_view);

struct MappingRow {
    // The source's number for this kind of event, or two of them; none: any.
    std::array<std::uint32_t, 2> events{};
    std::span<const Condition> conditions;
    std::string_view objectType;  // of the target
    std::string_view action;
    std::string_view needed;       // fields ("a,b") without which the row does not fit
    std::string_view correlation;  // a GUID, or another identifier
    std::span<const Member> actor;
    std::span<const Member> target;
    std::span<const Member> result;
};

struct MappingTable {
    std::span<const MappingRow> rows;
    // Where the event's own time stands, ahead of EventHead::time; "a|b", may be empty.
    std::string_view time = {};
    // Whether the hashes of a process's launch are put to its later events, found by its `uid`.
    bool carriesHashes = false;
};

// Whether a row of the table fits the event.
bool HasRule(const MappingTable& table, std::uint32_t event, SourceFields& fields);

// What the reader of a format knows of an event, beside its fields. Views that live as long as the
// fields.
struct EventHead {
    std::string_view format;     // the name in the list of formats
    std::string_view channel;    // or table, or whatever the source calls it
    std::uint32_t event = 0;     // its number; 0: the source has none
    std::string_view eventName;  // for counting, where there is no number
    std::string_view computer;
    std::string_view time;       // any form that ParseEventTime takes
    std::string_view timeField;  // the full name of its field, if it is one; may be empty
    std::optional<std::uint64_t> recordNumber;  // the source's own
};

struct MappingOptions {
    bool writesUnmapped = true;  // also `source`
    bool keepsAll = false;       // what no row fits becomes an `etw` event
    bool recovers = false;       // damaged files: also what only recovery finds
};

// Makes records of the events of one input. One for each input: events are numbered, and remembered
// for their hashes, within it, so that reading it again gives the same keys. For one thread.
class Mapper {
public:
    explicit Mapper(const MappingOptions& options) : options_(options) {}

    // Fills all of `*item` but its place. Fields that the reader has used for the head are to be
    // marked as taken; the fields are marked further.
    void Map(const MappingTable& table, const EventHead& head, SourceFields& fields,
             SourceItem* item);
    // The same for an event that the reader knows to have no row.
    void Pass(const EventHead& head, SourceFields& fields, SourceItem* item);

    // The next event without a number of its own gets this one, and those behind it the following.
    // For inputs that have no order, whose events are told apart by what they hold.
    void CountFrom(std::uint32_t number) noexcept { mapped_ = passed_ = number - 1; }

    const MappingOptions& Options() const noexcept { return options_; }

private:
    struct Hashes {
        std::string sha2;
        std::string md5;
    };
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    using KnownHashes = std::unordered_map<std::string, Hashes, TextHash, std::equal_to<>>;
    friend class RecordMaking;

    const Hashes* HashesOf(std::string_view uid) const;
    void Remember(std::string_view uid, std::string_view sha2, std::string_view md5);

    const MappingOptions options_;
    std::uint32_t mapped_ = 0;
    std::uint32_t passed_ = 0;
    // Two halves, so that what is older goes and memory stays bounded.
    KnownHashes hashes_;
    KnownHashes olderHashes_;
};

}  // namespace zel
