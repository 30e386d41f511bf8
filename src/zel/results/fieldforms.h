#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zel/results/fields.h"
#include "zel/results/resultform.h"

namespace zel {

// The forms that show fields of events and not their whole texts.

// Appends one cell of a comma separated file (RFC 4180). What a spreadsheet would take for a
// formula gets an apostrophe in front.
void AppendCsvCell(const FieldValue& value, std::string* out);
// Rows of values, each with its end: with a heading csv, table; else ndjson and json. For events
// and for what is counted of them.
class RowForm {
public:
    virtual ~RowForm() = default;
    virtual std::string Row(const std::vector<FieldValue>& values, bool isFirst) = 0;
    // Behind the last; `isEmpty`: there was none.
    virtual std::string End(bool isEmpty) = 0;
};
// csv, table, json, or ndjson for any other name, of the choice's fields.
std::unique_ptr<RowForm> MakeRowForm(FormChoice choice);

// Events as such rows.
std::unique_ptr<ResultForm> MakeFieldForm(FormChoice choice);
// One JSON object a line, as timelines take them: message, datetime and timestamp_desc, and the
// fields that the event has.
std::unique_ptr<ResultForm> MakeTimesketchForm(std::vector<Field> fields);

}  // namespace zel
