#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "records/sourcefields.h"

namespace zel {

// Reads the binary XML of Windows event logs into fields, under the names that ReadEventXml gives
// to the same facts. Every place and size is held to the chunk, and every walk is bounded, so bytes
// may be anything. For one thread.
class BinXml {
public:
    // The chunk in which all places count from its begin. It must stay as it is until the next one
    // is set, since names are remembered by their places.
    void SetChunk(std::span<const std::uint8_t> chunk);
    // Adds the facts of the fragment at these places. False when it is damaged; some fields may
    // have been added then.
    bool Read(std::size_t begin, std::size_t end, SourceFields* fields);

private:
    // A value that a template leaves open.
    struct Value {
        std::uint8_t type = 0;
        std::size_t begin = 0;
        std::size_t size = 0;
    };
    // Where a walk is, and how far it may go.
    struct Cursor {
        std::size_t at = 0;
        std::size_t end = 0;
    };
    struct Attribute {
        std::string_view name;
        std::string_view value;
    };
    // An element while it is read.
    struct Element {
        std::string_view prefix;  // "System.", with which its name begins
        std::string_view name;
        std::string_view text;
        const Value* array = nullptr;  // a text that stands for several
        bool hasElements = false;
    };

    // All give false, or set damaged_, for what does not fit.
    bool Fragment(Cursor* cursor, std::span<const Value> values, const Element* parent);
    bool Template(Cursor* cursor, const Element* parent);
    bool ReadElement(Cursor* cursor, std::span<const Value> values, const Element* parent);
    bool ReadAttributes(Cursor* cursor, std::span<const Value> values,
                        std::vector<Attribute>* attributes);
    bool ReadContent(Cursor* cursor, std::span<const Value> values, Element* element);
    bool ReadText(Cursor* cursor, std::span<const Value> values, Element* element);
    bool Substitute(Cursor* cursor, std::span<const Value> values, Element* element);
    void AddFields(const Element& element, const std::vector<Attribute>& attributes);
    void AddData(const Element& element, std::string_view name);

    bool Append(std::string_view text, Element* element);
    bool ReadName(Cursor* cursor, std::string_view* name);
    std::string_view TextOf(const Value& value);
    std::string_view ItemOf(const Value& value, std::size_t* at);
    std::string_view Utf8(std::size_t begin, std::size_t bytes);
    template <typename Number>
    bool Get(Cursor* cursor, Number* number);
    template <typename Number>
    Number At(std::size_t place) const;

    std::span<const std::uint8_t> chunk_;
    SourceFields* fields_ = nullptr;
    std::unordered_map<std::size_t, std::string> names_;
    int depth_ = 0;
    std::size_t steps_ = 0;
    std::size_t bytes_ = 0;  // of texts that were made
    bool hasData_ = false;   // an unnamed value of the event was seen
};

}  // namespace zel
