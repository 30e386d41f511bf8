#pragma once

#include <cpprest/json.h>

#include "zel/commands.h"
#include "zel/query/textconditions.h"

namespace zel {

// What flags or a document ask: the document, read or built and checked, and the conditions on
// texts beside it. exitCode::done, or with a message what the program ends with.
int ReadAsked(const QueryOptions& options, TextConditions* conditions, web::json::value* document);

}  // namespace zel
