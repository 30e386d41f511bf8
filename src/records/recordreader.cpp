#include "records/recordreader.h"

namespace zel {

bool RecordReader::Read(std::string_view record) {
    record_ = record;
    fields_.Clear();
    return json_.Read(record, &fields_);
}

std::optional<std::string_view> RecordReader::Value(const Column& column) {
    if (column.place.empty())
        return column.keyField.empty() ? std::optional(record_) : std::nullopt;
    const std::size_t plus = column.place.find('+');
    const auto first = ValueAt(column.place.substr(0, plus));
    const auto second =
        plus != column.place.npos ? ValueAt(column.place.substr(plus + 1)) : std::nullopt;
    if (!first || !second)
        return first ? first : second;
    joined_.assign(*first).append(" ").append(*second);
    return joined_;
}

std::optional<std::string_view> RecordReader::ValueAt(std::string_view places) {
    const SourceField* found = nullptr;
    AnyOfAlternatives(places, [&](std::string_view name) {
        found = fields_.FindWhole(name);
        return found != nullptr && !found->IsAbsent();
    });
    return found != nullptr ? std::optional(found->text) : std::nullopt;
}

}  // namespace zel
