#include "records/recordreader.h"

#include <algorithm>

#include "common/asciicase.h"

namespace zel {

namespace {

// Keys hold correlation identifiers in upper case, and take the least of them so.
bool Precedes(std::string_view a, std::string_view b, bool foldsCase) {
    if (!foldsCase)
        return a < b;
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return static_cast<unsigned char>(ZEL::ToUpperAscii(x)) <
               static_cast<unsigned char>(ZEL::ToUpperAscii(y));
    });
}

}  // namespace

bool RecordReader::Read(std::string_view record) {
    record_ = record;
    fields_.Clear();
    return json_.Read(record, &fields_);
}

std::optional<std::string_view> RecordReader::Value(const Column& column) {
    if (column.place.empty())
        return column.from != ColumnFrom::beside ? std::optional(record_) : std::nullopt;
    const std::size_t plus = column.place.find('+');
    const auto first = ValueAt(column.place.substr(0, plus), column);
    const auto second =
        plus != column.place.npos ? ValueAt(column.place.substr(plus + 1), column) : std::nullopt;
    if (!first || !second)
        return first ? first : second;
    joined_.assign(*first).append(" ").append(*second);
    return joined_;
}

std::optional<std::string_view> RecordReader::ValueAt(std::string_view places,
                                                      const Column& column) {
    const SourceField* found = nullptr;
    const bool isFound = AnyOfAlternatives(places, [&](std::string_view name) {
        found = fields_.FindWhole(name);
        if (found != nullptr && column.from == ColumnFrom::key && column.type == ColumnType::text)
            found = LeastOf(found, column.name == "correlation_uid");
        return found != nullptr && !found->IsAbsent();
    });
    return isFound ? std::optional(found->text) : std::nullopt;
}

// Of the values of an array, which stand behind one another, the one that its key has.
const SourceField* RecordReader::LeastOf(const SourceField* first, bool foldsCase) {
    const auto all = fields_.All();
    const SourceField* const end = all.data() + all.size();
    const SourceField* least = first;
    for (const SourceField* each = first + 1;
         each != end && each->part == SourceField::Part::further; ++each)
        if (Precedes(each->text, least->text, foldsCase))
            least = each;
    return least;
}

}  // namespace zel
