#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "zelstore/schema/carriednames.h"
#include "zelstore/schema/names.h"
#include "zelstore/schema/text.h"

// The names and numbers that records and queries use. Names without a number stand in names.h,
// those that nothing here reads in carriednames.h; the fields of keys stand in keys/keyfield.h.
namespace ZEL::Schema {

// The object types that code speaks of; the table has more. The same numbers choose the class of an
// object (objectfactory.h), and an object that copies by a number without a class is lost.
namespace objectType {
// Also of objects that have no object_type.
inline constexpr std::int32_t unknown = 0;
// The kinds of value, which are objects of their own in a document.
inline constexpr std::int32_t operatorPair = 1;
inline constexpr std::int32_t stringPair = 2;
// The things that an event may name (objectclasses.h).
inline constexpr std::int32_t regKey = 5;
inline constexpr std::int32_t regValue = 6;
inline constexpr std::int32_t file = 7;
inline constexpr std::int32_t directory = 8;
inline constexpr std::int32_t process = 9;
inline constexpr std::int32_t service = 10;
inline constexpr std::int32_t module = 11;
inline constexpr std::int32_t session = 12;
inline constexpr std::int32_t kernelObject = 13;
inline constexpr std::int32_t network = 14;
inline constexpr std::int32_t event = 15;
inline constexpr std::int32_t eventQuery = 18;
inline constexpr std::int32_t guidPair = 28;
inline constexpr std::int32_t integerPair = 29;
inline constexpr std::int32_t amsi = 35;
inline constexpr std::int32_t etw = 36;
inline constexpr std::int32_t url = 37;
}  // namespace objectType

// The numbers are those of documents and of the order in tables; they never change. Which of them a
// field takes is for the query's filter to say; in a record none is looked at but for wildcards
// under `equals`.
enum OperatorType : std::int32_t {
    // Also what a condition without an operator's name has; no row fulfils it.
    operatorUnknown = 0,
    operatorEquals = 1,
    operatorDoesNotEqual = 2,
    operatorContains = 3,
    operatorDoesNotContain = 4,
    operatorStartsWith = 5,
    operatorEndsWith = 6,
    operatorGreaterThan = 7,
    operatorGreaterThanOrEqual = 8,
    operatorLessThan = 9,
    operatorLessThanOrEqual = 10,
    // A regular expression for the whole text; a document says it, or an `equals` with * or ? in a
    // path, an address or a url.
    operatorFitsPattern = 11,
};

// One enumeration as a table in both directions. Names are compared exactly. Rows may come in any
// order; a number that appears twice has the later name and both names. Not changed once it is
// made.
class NameTable {
public:
    struct Row {
        std::int32_t number;
        const utility::char_t* name;
    };

    template <std::size_t n>
    explicit NameTable(const Row (&rows)[n]) : NameTable(rows, n) {}

    // Both throw std::out_of_range "invalid map<K, T> key" for what is not in the table.
    std::int32_t Number(TextView name) const;
    const Text& Name(std::int32_t number) const;
    // The number of a name, or none.
    std::optional<std::int32_t> Find(TextView name) const noexcept;
    // How many names there are.
    std::size_t Size() const noexcept { return numbers_.size(); }

private:
    // The rows are only read here; the table keeps copies.
    NameTable(const Row* rows, std::size_t count);

    // Searched by views, so that no text is made for a search.
    struct Hash : std::hash<TextView> {
        using is_transparent = void;
    };
    std::unordered_map<Text, std::int32_t, Hash, std::equal_to<>> numbers_;
    // Owned, since callers want a reference to a text and not to a literal.
    std::vector<Text> names_;  // by number; empty where a number has no name
};

// Made at the first use, and then only read: for any thread. They live as long as the module.
const NameTable& ObjectTypes();
const NameTable& ActionTypes();
const NameTable& OperatorTypes();
const NameTable& ExistStates();
const NameTable& SessionStates();

}  // namespace ZEL::Schema
