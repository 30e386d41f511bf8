#pragma once

#include <cpprest/json.h>

#include <string>

#include "questions/narrowing.h"
#include "zel/commands.h"

namespace zel {

// Builds the document that the flags of a query stand for. Empty flags count as absent. On failure
// `problem` tells which argument is wrong, with a caret under the place.
//
// A sub-query joins its conditions by AND, so alternatives that lie in different fields (the hash
// of the actor or of the target, either address of a connection, the kinds of target that have a
// path) become sub-queries of their own. `*document` is unchanged on failure. What it makes still
// goes through CheckDocument, as a document that was written by hand does.
//
// `narrowing`: what the keys decide of conditions on the text. It stands in for what no flag asks.
bool BuildDocument(const QueryOptions& options, web::json::value* document, std::string* problem,
                   const Narrowing& narrowing = {});

// The document as people edit it: indented, members in their order. Ends in a newline, and parses
// to the same document.
std::string PrettyDocument(const web::json::value& document);

}  // namespace zel
