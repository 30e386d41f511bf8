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
// brace is lost. On a lack of memory it throws and leaves the text whole.
void AppendEnrichments(std::string& text, const std::vector<std::string>& values);

// Adds ,"enriched_data":... in the same way. On a lack of memory it throws, and may leave the text
// cut.
void SpliceEnrichedData(std::string& text, std::string_view enrichment);

// What a receive-time row's value says.
struct ReceiveRow {
    std::string eventKey;
    std::string enrichment;  // JSON text; "null" when the row has none
};

// 0x80004005 for a value that is no JSON object with the event's key. 0x8007000E for a key that is
// not Unicode. Members that are not known are left alone.
HRESULT ParseReceiveRow(std::string_view value, ReceiveRow* row);

}  // namespace ZEL
