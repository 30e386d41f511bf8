#include "records/formats/jsonevent.h"

#include <charconv>

namespace zel {

bool JsonEventSource::Next(SourceItem* item) {
    if (!line_)
        return false;
    item->Clear();
    const SourceLine line = *line_;
    line_.reset();
    if (line.fields == nullptr) {
        item->problem = "no JSON object";
    } else {
        line.fields->SetScope({});
        Read(*line.fields, item);
    }
    item->place = line.number;
    return true;
}

std::string_view TakeFirst(SourceFields& fields, std::string_view names) {
    SourceField* const field = fields.FindPresent(names);
    if (field == nullptr)
        return {};
    field->taken = true;
    return field->text;
}

std::optional<std::uint64_t> TakeNumber(SourceFields& fields, std::string_view names,
                                        std::uint64_t most) {
    SourceField* const field = fields.FindPresent(names);
    if (field == nullptr)
        return std::nullopt;
    std::uint64_t number = 0;
    const char* const end = field->text.data() + field->text.size();
    const auto [at, failure] = std::from_chars(field->text.data(), end, number);
    if (failure != std::errc() || at != end || number > most)
        return std::nullopt;
    field->taken = true;
    return number;
}

}  // namespace zel
