#include "zelstore/query/resulttext.h"

#include <cpprest/json.h>

#include "common/textbridge.h"
#include "common/trace.h"
#include "zelstore/schema/text.h"

// Members are added to events by cutting off the last brace. Events are stored as they came;
// parsing and writing each result anew would cost far more than the splice, and could change the
// order of members and the form of numbers. What follows the last brace can only be white space in
// JSON.

namespace ZEL {

namespace {

bool CutLastBrace(std::string& text) {
    const std::size_t brace = text.rfind('}');
    if (brace == std::string::npos) {
        wm::Trace(wm::message::eventWithoutBrace);
        return false;
    }
    text.resize(brace);
    return true;
}

// What nearly all rows are: a key and no more, with no escapes but those of quotes and backslashes.
// False for all others.
bool ReadPlainRow(std::string_view value, std::string* key) {
    constexpr std::string_view start = "{\"event_pkey\":\"", end = "\"}";
    if (value.size() < start.size() + end.size() || !value.starts_with(start) ||
        !value.ends_with(end) || !wm::IsUtf8(value))
        return false;
    value.remove_prefix(start.size());
    value.remove_suffix(end.size());
    key->clear();
    for (std::size_t i = 0; i < value.size(); ++i) {
        const bool isEscape = value[i] == '\\';
        i += isEscape ? 1 : 0;
        if (i == value.size() || static_cast<unsigned char>(value[i]) < 0x20)
            return false;
        const bool needsEscape = value[i] == '"' || value[i] == '\\';
        if (isEscape != needsEscape)
            return false;
        *key += value[i];
    }
    return true;
}

}  // namespace

void AppendEnrichments(std::string& text, const std::vector<std::string>& values) {
    std::size_t added = sizeof(",\"enrichments\":[]}");
    for (const std::string& value : values)
        added += value.size() + 1;
    text.reserve(text.size() + added);  // ahead of the cut, so that a failure leaves the text whole
    if (!CutLastBrace(text))
        return;
    text.append(",\"enrichments\":[");
    const char* separator = "";
    for (const std::string& value : values) {
        text.append(separator).append(value);
        separator = ",";
    }
    text.append("]}");
}

void SpliceEnrichedData(std::string& text, std::string_view enrichment) {
    if (!CutLastBrace(text))
        return;
    text.append(",\"enriched_data\":").append(enrichment).append("}");
}

HRESULT ParseReceiveRow(std::string_view value, ReceiveRow* row) {
    if (ReadPlainRow(value, &row->eventKey)) {
        row->enrichment = "null";
        return hr::ok;
    }
    try {
        web::json::value parsed = web::json::value::parse(Schema::FromUtf8(value));
        std::string buffer;
        const auto key = Schema::ToUtf8(parsed.at(ZEL_TEXT("event_pkey")).as_string(), buffer);
        if (!key)
            return hr::outOfMemory;
        row->eventKey = *key;
        row->enrichment = utility::conversions::to_utf8string(
            parsed.has_field(ZEL_TEXT("event_enrichment"))
                ? parsed.at(ZEL_TEXT("event_enrichment")).serialize()
                : utility::string_t(ZEL_TEXT("null")));
        return hr::ok;
    } catch (const web::json::json_exception&) {
        return hr::fail;
    }
}

}  // namespace ZEL
