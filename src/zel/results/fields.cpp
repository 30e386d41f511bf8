#include "zel/results/fields.h"

#include <cpprest/json.h>

#include <algorithm>
#include <charconv>

#include "zel/terminal/textfit.h"

// Columns are read by the reader that all doors share. A pointer needs the whole text as a tree,
// which costs several times as much, so it is made only where a pointer was asked for.

namespace zel {

namespace {

using web::json::value;

// ~1 stands for a slash and ~0 for a tilde.
std::optional<std::vector<std::string>> StepsOf(std::string_view pointer) {
    std::vector<std::string> steps;
    for (std::size_t at = 0; at < pointer.size(); ++at) {
        const char c = pointer[at];
        if (c == '/') {
            steps.emplace_back();
            continue;
        }
        if (c != '~') {
            steps.back() += c;
            continue;
        }
        ++at;
        if (at == pointer.size() || (pointer[at] != '0' && pointer[at] != '1'))
            return std::nullopt;
        steps.back() += pointer[at] == '0' ? '~' : '/';
    }
    return steps;
}

std::vector<std::string_view> FieldNames() {
    std::vector<std::string_view> names{"enrichments"};
    for (const Column& column : Columns())
        names.push_back(column.name);
    return names;
}

std::optional<Field> ParseField(std::string_view name, std::string* problem) {
    Field field;
    field.name = name;
    field.column = FindColumn(name);
    if (field.column != nullptr) {
        field.type = field.column->type;
        return field;
    }
    if (name == "enrichments") {
        field.pointer = {"enrichments"};
        return field;
    }
    const auto steps = name.starts_with('/') ? StepsOf(name) : std::nullopt;
    if (!steps) {
        *problem = name.starts_with('/')
                       ? "\"" + Escaped(name) + "\" is no JSON pointer: behind ~ stands 0 or 1"
                       : UnknownName("column", std::string(name), FieldNames());
        return std::nullopt;
    }
    field.pointer = *steps;
    return field;
}

const value* Step(const value& in, const std::string& step) {
    if (in.is_object()) {
        const auto found = in.as_object().find(step);
        return found != in.as_object().end() ? &found->second : nullptr;
    }
    std::size_t index = 0;
    const char* const end = step.data() + step.size();
    const auto parsed = std::from_chars(step.data(), end, index);
    const bool isIndex = parsed.ec == std::errc() && parsed.ptr == end;
    return in.is_array() && isIndex && index < in.size() ? &in.at(index) : nullptr;
}

FieldValue At(const value& document, const std::vector<std::string>& pointer) {
    const value* found = &document;
    for (std::size_t i = 0; found != nullptr && i < pointer.size(); ++i)
        found = Step(*found, pointer[i]);
    if (found == nullptr || found->is_null())
        return {};
    if (found->is_string())
        return {FieldValue::Kind::text, found->as_string()};
    return {found->is_number() ? FieldValue::Kind::number : FieldValue::Kind::json,
            found->serialize()};
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos &&
           (text.size() == 1 || text.front() != '0');
}

}  // namespace

std::optional<std::vector<Field>> ParseFields(std::string_view list, std::string* problem) {
    std::vector<Field> fields;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        auto field = ParseField(list.substr(begin, end - begin), problem);
        if (!field)
            return std::nullopt;
        fields.push_back(std::move(*field));
        begin = end + 1;
    }
    return fields;
}

std::vector<Field> AllFields(BesideEvents beside) {
    std::vector<Field> fields;
    const auto add = [&fields](const Column& column) {
        fields.push_back({std::string(column.name), &column, {}, column.type});
    };
    if (beside.hosts)
        add(*FindColumn("host"));
    for (const Column& column : Columns())
        if (column.name != "event" && column.name != "host" &&
            (column.name != "key" || beside.keys))
            add(column);
    if (beside.enrichments)
        fields.push_back({"enrichments", nullptr, {"enrichments"}, ColumnType::json});
    return fields;
}

FieldReader::FieldReader(std::vector<Field> fields, ZoneTime zone)
    : fields_(std::move(fields)), zone_(std::move(zone)), values_(fields_.size()) {
    hasPointers_ = std::any_of(fields_.begin(), fields_.end(),
                               [](const Field& field) { return field.column == nullptr; });
}

FieldValue FieldReader::ValueOf(const Field& field, const FoundEvent& event, bool isRead) {
    using Kind = FieldValue::Kind;
    if (field.IsKey())
        return {event.key.empty() ? Kind::none : Kind::text, std::string(event.key)};
    if (field.IsHost())
        return {event.host.empty() ? Kind::none : Kind::text, std::string(event.host)};
    const auto found = isRead ? reader_.Value(*field.column) : std::nullopt;
    if (!found)
        return {};
    switch (field.column->type) {
        case ColumnType::json:
            return {Kind::json, std::string(*found)};
        case ColumnType::time:
            return {Kind::text, zone_.Shown(*found)};
        case ColumnType::number:
            return {IsNumber(*found) ? Kind::number : Kind::text, std::string(*found)};
        case ColumnType::text:
            break;
    }
    return {Kind::text, std::string(*found)};
}

void FieldReader::ReadPointers(std::string_view text) {
    value document;
    try {
        document = value::parse(std::string(text));
    } catch (const std::exception&) {
        document = value::null();
    }
    for (std::size_t i = 0; i < fields_.size(); ++i)
        if (fields_[i].column == nullptr)
            values_[i] = At(document, fields_[i].pointer);
}

const std::vector<FieldValue>& FieldReader::Read(const FoundEvent& event) {
    const bool isRead = reader_.Read(event.text);
    for (std::size_t i = 0; i < fields_.size(); ++i)
        if (fields_[i].column != nullptr)
            values_[i] = ValueOf(fields_[i], event, isRead);
    if (hasPointers_)
        ReadPointers(event.text);
    return values_;
}

}  // namespace zel
