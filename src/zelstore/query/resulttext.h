#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"

namespace ZEL {

// Result texts are event texts with more members spliced in ahead of their last closing brace. No
// event is parsed for that, and nothing is escaped: what is spliced in is JSON already. All is
// UTF-8.

// Adds ,"enrichments":[...]. A text without a closing brace stays as it is; what followed the last
// brace is lost.
void AppendEnrichments(std::string& text, const std::vector<std::string>& values);

// Adds ,"enriched_data":... in the same way.
void SpliceEnrichedData(std::string& text, std::string_view enrichment);

// What a receive-time row's value says.
struct ReceiveRow {
    std::string eventKey;
    std::string enrichment;  // JSON text; "null" when the row has none
};

// 0x80004005 for a value that is no JSON object with the event's key.
HRESULT ParseReceiveRow(std::string_view value, ReceiveRow* row);

}  // namespace ZEL
