#include "records/jsonfields.h"

#include <simdjson.h>

#include <charconv>
#include <cstring>

// The library parses the whole text first, so nothing of a broken one is taken, and its values stay
// where it has put them: only names that consist of several are made here.

namespace zel {

namespace {

namespace dom = simdjson::dom;
using Part = SourceField::Part;

// Sources nest four or five levels. The walk is recursive, so a text may not choose the depth.
constexpr int deepest = 32;
constexpr std::size_t longestPrefix = 256;  // bytes
// Past that the parser's memory, which is several times the text, is given back.
constexpr std::size_t largestKept = 4U << 20;  // bytes

bool IsPlain(dom::element value) {
    return !value.is_object() && !value.is_array();
}

class Walk {
public:
    explicit Walk(SourceFields* fields) : fields_(*fields) {}

    void Members(dom::object object, std::string_view prefix, int depth) {
        for (const auto& [key, value] : object)
            Value(prefix.empty() ? key : fields_.Keep(prefix, key), value, depth);
    }

private:
    void Value(std::string_view name, dom::element value, int depth) {
        if (value.is_object())
            Object(name, value.get_object().value_unsafe(), depth);
        else if (value.is_array())
            Array(name, value.get_array().value_unsafe());
        else
            Plain(name, value);
    }

    // Names grow with each level, so what is below a long one stays in one piece.
    void Object(std::string_view name, dom::object object, int depth) {
        if (object.size() == 0 || depth == deepest || name.size() > longestPrefix)
            AddWhole(name, object);
        else
            Members(object, fields_.Keep(name, "."), depth + 1);
    }

    void Array(std::string_view name, dom::array array) {
        if (array.size() == 0 || !std::all_of(array.begin(), array.end(), IsPlain)) {
            AddWhole(name, array);
            return;
        }
        Part part = Part::first;
        for (const dom::element value : array) {
            Plain(name, value).part = part;
            part = Part::further;
        }
    }

    // The text is made anew by the library, so it is good JSON whatever the source's looked like.
    template <typename Thing>
    void AddWhole(std::string_view name, Thing thing) {
        fields_.AddJson(name, fields_.Keep(simdjson::minify(thing)));
    }

    SourceField& Plain(std::string_view name, dom::element value) {
        switch (value.type()) {
            case dom::element_type::STRING:
                return fields_.AddText(name, value.get_string().value_unsafe());
            case dom::element_type::INT64:
                return Number(name, value.get_int64().value_unsafe());
            case dom::element_type::UINT64:
                return Number(name, value.get_uint64().value_unsafe());
            case dom::element_type::DOUBLE:
                return fields_.AddNumber(name, fields_.Keep(simdjson::minify(value)));
            case dom::element_type::BOOL:
                return fields_.AddJson(name, value.get_bool().value_unsafe() ? "true" : "false");
            default:
                return fields_.AddJson(name, "null");
        }
    }

    template <typename Integer>
    SourceField& Number(std::string_view name, Integer number) {
        char digits[24];
        const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
        return fields_.AddNumber(name,
                                 fields_.Keep({digits, static_cast<std::size_t>(end - digits)}));
    }

    SourceFields& fields_;
};

}  // namespace

struct JsonFields::Parser {
    dom::parser library;
};

JsonFields::JsonFields() : parser_(std::make_unique<Parser>()) {}

JsonFields::~JsonFields() = default;

bool JsonFields::Read(std::string_view json, SourceFields* fields, std::string_view prefix) {
    if (parser_->library.capacity() > largestKept && json.size() <= largestKept)
        parser_->library = dom::parser();
    const auto parsed = parser_->library.parse(json.data(), json.size());
    if (parsed.error() != simdjson::SUCCESS) {
        error_ = std::string("not JSON: ") + simdjson::error_message(parsed.error());
        return false;
    }
    const auto object = parsed.get_object();
    if (object.error() != simdjson::SUCCESS) {
        error_ = "no JSON object";
        return false;
    }
    Walk(fields).Members(object.value_unsafe(), prefix, 0);
    return true;
}

bool JsonFields::Split(std::string_view json, std::vector<std::string>* items) {
    items->clear();
    dom::array array;
    const auto error = parser_->library.parse(json.data(), json.size()).get_array().get(array);
    if (error != simdjson::SUCCESS) {
        error_ = std::string("no JSON array: ") + simdjson::error_message(error);
        return false;
    }
    for (const dom::element item : array)
        items->push_back(simdjson::minify(item));
    return true;
}

}  // namespace zel
