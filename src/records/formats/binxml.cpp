#include "records/formats/binxml.h"

#include <algorithm>
#include <cstring>

#include "records/formats/binxmlvalue.h"

// Binary XML, as far as event logs use it. A fragment is a tree of tokens; most events are one
// token that names a template, a tree with holes, and the values for the holes. Template and values
// stand anywhere in the chunk, and so do names, which stand where they were used first.
//
//   fragment  = 0F major minor flags (template | element) 00
//   template  = 0C 01 id:4 place:4 [next:4 guid:16 size:4 fragment]  the rest where place says
//               count:4 {size:2 type:1 00}* values
//   element   = 01|41 dependency:2 size:4 name:4 [attributes] (03 | 02 content* 04)
//   attributes= size:4 (06|46 name:4 text)*
//   text      = 05 01 chars:2 text | 0D|0E index:2 type:1 | 07 chars:2 text | 08 char:2 | 09 name:4
//   name      = next:4 hash:2 chars:2 text 0000

namespace zel {

namespace {

enum Token : std::uint8_t {
    tokenEnd = 0x00,
    tokenElement = 0x01,
    tokenCloseStart = 0x02,
    tokenCloseEmpty = 0x03,
    tokenCloseElement = 0x04,
    tokenText = 0x05,
    tokenAttribute = 0x06,
    tokenCdata = 0x07,
    tokenCharacter = 0x08,
    tokenEntity = 0x09,
    tokenTarget = 0x0A,
    tokenInstruction = 0x0B,
    tokenTemplate = 0x0C,
    tokenValue = 0x0D,
    tokenOptional = 0x0E,
    tokenFragment = 0x0F,
    tokenFlag = 0x40,  // there is more of the kind
};

constexpr int deepest = 24;
// More than any event needs; a small damaged one could else name templates within templates.
constexpr std::size_t mostSteps = 50'000;
constexpr std::size_t mostValues = 4096;
// What an event of a chunk can come to by itself; one that names a value again and again has more.
constexpr std::size_t mostBytes = 512U << 10;
constexpr std::size_t longestName = 512;  // characters

Token Kind(std::uint8_t token) {
    return static_cast<Token>(token & ~tokenFlag);
}

}  // namespace

void BinXml::SetChunk(std::span<const std::uint8_t> chunk) {
    chunk_ = chunk;
    names_.clear();
}

bool BinXml::Read(std::size_t begin, std::size_t end, SourceFields* fields) {
    fields_ = fields;
    depth_ = 0;
    steps_ = 0;
    bytes_ = 0;
    hasData_ = false;
    Cursor cursor{begin, std::min(end, chunk_.size())};
    return begin <= cursor.end && Fragment(&cursor, {}, nullptr);
}

template <typename Number>
Number BinXml::At(std::size_t place) const {
    Number number{};
    if (place <= chunk_.size() && sizeof(Number) <= chunk_.size() - place)
        std::memcpy(&number, chunk_.data() + place, sizeof(Number));
    return number;
}

template <typename Number>
bool BinXml::Get(Cursor* cursor, Number* number) {
    if (cursor->at > cursor->end || cursor->end - cursor->at < sizeof(Number))
        return false;
    *number = At<Number>(cursor->at);
    cursor->at += sizeof(Number);
    return true;
}

// `parent` is the element in which the fragment stands; null for that of a record.
bool BinXml::Fragment(Cursor* cursor, std::span<const Value> values, const Element* parent) {
    std::uint8_t token = 0;
    while (cursor->at < cursor->end) {
        if (++steps_ > mostSteps || depth_ > deepest)
            return false;
        token = At<std::uint8_t>(cursor->at);
        bool isGood = true;
        switch (Kind(token)) {
            case tokenEnd:
                return true;
            case tokenFragment:
                cursor->at += 4;
                break;
            case tokenTemplate:
                isGood = Template(cursor, parent);
                break;
            case tokenElement:
                isGood = ReadElement(cursor, values, parent);
                break;
            default:
                return false;
        }
        if (!isGood)
            return false;
    }
    return true;
}

// The definition stands here where the template is used first, and else further ahead.
bool BinXml::Template(Cursor* cursor, const Element* parent) {
    constexpr std::size_t headSize = 24;  // of a definition
    std::uint32_t id = 0, place = 0, count = 0;
    cursor->at += 2;
    if (!Get(cursor, &id) || !Get(cursor, &place) || place > chunk_.size() ||
        chunk_.size() - place < headSize)
        return false;
    const std::size_t size = At<std::uint32_t>(place + 20);
    if (size > chunk_.size() - place - headSize)
        return false;
    if (place == cursor->at)
        cursor->at += headSize + size;
    if (!Get(cursor, &count) || count > mostValues)
        return false;
    std::vector<Value> values(count);
    for (Value& value : values) {
        std::uint16_t bytes = 0;
        std::uint8_t unused = 0;
        if (!Get(cursor, &bytes) || !Get(cursor, &value.type) || !Get(cursor, &unused))
            return false;
        value.size = bytes;
    }
    for (Value& value : values) {
        if (value.size > cursor->end - cursor->at)
            return false;
        value.begin = cursor->at;
        cursor->at += value.size;
    }
    Cursor body{place + headSize, place + headSize + size};
    ++depth_;
    const bool isGood = Fragment(&body, values, parent);
    --depth_;
    return isGood;
}

// The size that stands in front of an element is not looked at: its end shows by its tokens, and
// damaged sizes would hide what can be read.
bool BinXml::ReadElement(Cursor* cursor, std::span<const Value> values, const Element* parent) {
    const bool hasAttributes = (At<std::uint8_t>(cursor->at) & tokenFlag) != 0;
    std::uint16_t dependency = 0;
    std::uint32_t size = 0, attributesSize = 0;
    Element element;
    ++cursor->at;
    if (++steps_ > mostSteps || ++depth_ > deepest || !Get(cursor, &dependency) ||
        !Get(cursor, &size) || !ReadName(cursor, &element.name))
        return false;
    std::vector<Attribute> attributes;
    if (hasAttributes &&
        (!Get(cursor, &attributesSize) || !ReadAttributes(cursor, values, &attributes)))
        return false;
    // The outermost element is the event itself; what is below it has names of its own.
    const bool isEvent = parent == nullptr;
    const bool isTop = parent != nullptr && parent->name.empty();
    if (!isEvent && !isTop)
        element.prefix = fields_->Keep(fields_->Keep(parent->prefix, parent->name), ".");
    bytes_ += element.prefix.size() + element.name.size();
    if (isEvent)
        element.name = {};
    if (!ReadContent(cursor, values, &element))
        return false;
    --depth_;
    if (!isEvent)
        AddFields(element, attributes);
    return true;
}

bool BinXml::ReadAttributes(Cursor* cursor, std::span<const Value> values,
                            std::vector<Attribute>* attributes) {
    while (Kind(At<std::uint8_t>(cursor->at)) == tokenAttribute) {
        ++cursor->at;
        Attribute attribute;
        Element text;
        if (++steps_ > mostSteps || !ReadName(cursor, &attribute.name))
            return false;
        while (Kind(At<std::uint8_t>(cursor->at)) != tokenAttribute) {
            const Token token = Kind(At<std::uint8_t>(cursor->at));
            const bool isText = token == tokenText || token == tokenValue ||
                                token == tokenOptional || token == tokenCdata ||
                                token == tokenCharacter || token == tokenEntity;
            if (!isText)
                break;
            if (cursor->at >= cursor->end || !ReadText(cursor, values, &text))
                return false;
        }
        attribute.value = text.text;
        if (!text.text.empty())  // left out where it is optional
            attributes->push_back(attribute);
    }
    return true;
}

bool BinXml::ReadContent(Cursor* cursor, std::span<const Value> values, Element* element) {
    while (cursor->at < cursor->end) {
        if (++steps_ > mostSteps)
            return false;
        switch (Kind(At<std::uint8_t>(cursor->at))) {
            case tokenCloseStart:
                ++cursor->at;
                break;
            case tokenCloseEmpty:
            case tokenCloseElement:
                ++cursor->at;
                return true;
            case tokenElement:
                element->hasElements = true;
                if (!ReadElement(cursor, values, element))
                    return false;
                break;
            case tokenTemplate:
                element->hasElements = true;
                if (!Template(cursor, element))
                    return false;
                break;
            case tokenFragment:
                cursor->at += 4;
                break;
            default:
                if (!ReadText(cursor, values, element))
                    return false;
        }
    }
    return false;
}

// Texts that follow one another are one.
bool BinXml::ReadText(Cursor* cursor, std::span<const Value> values, Element* element) {
    const Token token = Kind(At<std::uint8_t>(cursor->at++));
    std::uint8_t type = 0;
    std::uint16_t count = 0;
    std::string_view text;
    switch (token) {
        case tokenValue:
        case tokenOptional:
            return Substitute(cursor, values, element);
        case tokenText:
            if (!Get(cursor, &type) || type != binXmlText)
                return false;
            [[fallthrough]];
        case tokenCdata:
        case tokenInstruction:
            if (!Get(cursor, &count) || count * std::size_t{2} > cursor->end - cursor->at)
                return false;
            text = Utf8(cursor->at, count * std::size_t{2});
            cursor->at += count * std::size_t{2};
            break;
        case tokenCharacter:
            text = Utf8(cursor->at, 2);
            if (!Get(cursor, &count))
                return false;
            break;
        case tokenEntity: {
            std::string_view name;
            if (!ReadName(cursor, &name))
                return false;
            text = name == "lt"     ? "<"
                   : name == "gt"   ? ">"
                   : name == "quot" ? "\""
                   : name == "apos" ? "'"
                                    : "&";
            break;
        }
        case tokenTarget: {
            std::string_view name;
            return ReadName(cursor, &name);
        }
        default:
            return false;
    }
    return token == tokenInstruction || Append(text, element);
}

// False when the event has more text than one of a chunk can have.
bool BinXml::Append(std::string_view text, Element* element) {
    element->text = element->text.empty() ? text : fields_->Keep(element->text, text);
    bytes_ += element->text.size();
    return bytes_ <= mostBytes;
}

// A value may be a fragment of its own, with a template and values of its own; mostly the event's
// data is one, put into the template of the head that all events share.
bool BinXml::Substitute(Cursor* cursor, std::span<const Value> values, Element* element) {
    std::uint16_t index = 0;
    std::uint8_t type = 0;
    if (!Get(cursor, &index) || !Get(cursor, &type) || index >= values.size())
        return false;
    const Value& value = values[index];
    if (value.type == binXmlFragment) {
        Cursor inner{value.begin, value.begin + value.size};
        element->hasElements = true;
        ++depth_;
        const bool isGood = Fragment(&inner, values, element);
        --depth_;
        return isGood;
    }
    if ((value.type & binXmlArray) != 0)
        element->array = &value;
    return Append(TextOf(value), element);
}

// As XmlWalk does it with the same element in text form.
void BinXml::AddFields(const Element& element, const std::vector<Attribute>& attributes) {
    const bool isData = element.prefix == "EventData.";
    for (const Attribute& attribute : attributes) {
        if (isData && attribute.name == "Name")
            return AddData(element, fields_->Keep("EventData.", attribute.value));
    }
    if (isData && element.name == "Data")
        return AddData(element, "");
    const std::string_view name = fields_->Keep(element.prefix, element.name);
    for (const Attribute& attribute : attributes)
        fields_->AddText(fields_->Keep(fields_->Keep(name, "."), attribute.name), attribute.value);
    if (!element.hasElements && !element.text.empty())
        fields_->AddText(name, element.text);
}

// An array stands for as many elements; those without a name are values of one field.
void BinXml::AddData(const Element& element, std::string_view name) {
    using Part = SourceField::Part;
    const bool isNamed = !name.empty();
    std::size_t at = 0;
    Part part = Part::first;
    do {
        const std::string_view text =
            element.array != nullptr ? ItemOf(*element.array, &at) : element.text;
        SourceField& field = fields_->AddText(isNamed ? name : "EventData.Data", text);
        if (!isNamed) {
            field.part = hasData_ ? Part::further : Part::first;
            hasData_ = true;
        } else if (element.array != nullptr) {
            field.part = part;
            part = Part::further;
        }
        bytes_ += sizeof(SourceField);
    } while (element.array != nullptr && at < element.array->size && bytes_ <= mostBytes);
}

// A name stands here where it is used first, and else further ahead.
bool BinXml::ReadName(Cursor* cursor, std::string_view* name) {
    constexpr std::size_t headSize = 8;
    std::uint32_t place = 0;
    if (!Get(cursor, &place) || place > chunk_.size() || chunk_.size() - place < headSize)
        return false;
    const std::size_t bytes = std::size_t{2} * At<std::uint16_t>(place + 6);
    if (bytes > 2 * longestName || bytes > chunk_.size() - place - headSize)
        return false;
    const auto [found, isNew] = names_.try_emplace(place);
    if (isNew)
        found->second = Utf8(place + headSize, bytes);
    *name = found->second;
    if (place == cursor->at)
        cursor->at += headSize + bytes + 2;
    return cursor->at <= cursor->end;
}

// Halves of surrogate pairs alone become U+FFFD; a NUL at the end is no part of the text.
std::string_view BinXml::Utf8(std::size_t begin, std::size_t bytes) {
    if (begin > chunk_.size() || bytes > chunk_.size() - begin)
        return {};
    char* const place = fields_->Room(bytes / 2 * 3);
    char* out = place;
    const std::size_t end = begin + bytes / 2 * 2;
    for (std::size_t at = begin; at < end; at += 2) {
        std::uint32_t c = At<std::uint16_t>(at);
        if (c < 0x80) {
            *out++ = static_cast<char>(c);
            continue;
        }
        if (c >= 0xD800 && c < 0xE000) {
            const std::uint32_t next = at + 2 < end ? At<std::uint16_t>(at + 2) : 0;
            const bool isPair = c < 0xDC00 && next >= 0xDC00 && next < 0xE000;
            c = isPair ? 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00) : 0xFFFD;
            at += isPair ? 2 : 0;
        }
        if (c < 0x800) {
            *out++ = static_cast<char>(0xC0 | (c >> 6));
        } else if (c < 0x10000) {
            *out++ = static_cast<char>(0xE0 | (c >> 12));
            *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        } else {
            *out++ = static_cast<char>(0xF0 | (c >> 18));
            *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        }
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    std::string_view text(place, static_cast<std::size_t>(out - place));
    while (text.ends_with('\0'))
        text.remove_suffix(1);
    return text;
}

// The next of an array of texts, each of which ends with a NUL; of others all in one.
std::string_view BinXml::ItemOf(const Value& value, std::size_t* at) {
    if (value.type != (binXmlText | binXmlArray)) {
        *at = value.size;
        return TextOf(value);
    }
    const std::size_t begin = *at;
    while (*at + 1 < value.size && At<std::uint16_t>(value.begin + *at) != 0)
        *at += 2;
    const std::size_t bytes = *at - begin;
    *at = std::max(*at + 2, begin + 2);
    return Utf8(value.begin + begin, bytes);
}

// Texts of UTF-16 are by far the most, and need no text in between.
std::string_view BinXml::TextOf(const Value& value) {
    if (value.type == binXmlText)
        return Utf8(value.begin, value.size);
    return fields_->Keep(BinXmlValueText(value.type, chunk_.subspan(value.begin, value.size)));
}

}  // namespace zel
