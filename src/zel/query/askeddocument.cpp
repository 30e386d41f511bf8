#include "zel/query/askeddocument.h"

#include <string>

#include "zel/query/documentcheck.h"
#include "zel/query/querydocument.h"
#include "zel/terminal/inputfile.h"
#include "zel/terminal/messages.h"

namespace zel {

namespace {

using web::json::value;

// The argument is JSON, or names a file that holds some. What begins like JSON is never taken for a
// file's name, so a document with a slip gets a message about JSON.
bool ReadDocument(const std::string& argument, value* document, std::string* problem) {
    constexpr std::size_t largest = 16U << 20;  // bytes; parsed it takes twenty times as much
    const std::size_t first = argument.find_first_not_of(" \t\r\n");
    std::string text = argument;
    const bool isJson = first == argument.npos || argument[first] == '{' || argument[first] == '[';
    if (!isJson && !ReadInputFile(argument, largest, &text, problem))
        return false;
    return ParseDocument(text, document, problem);
}

bool GetDocument(const QueryOptions& options, const TextConditions& conditions, value* document,
                 std::string* problem) {
    return options.document.empty()
               ? BuildDocument(options, document, problem, NarrowingOf(conditions))
               : ReadDocument(options.document, document, problem);
}

// Tells all that is wrong with the document. False when it is not to be run. Notes are left out
// beside errors: they would bury them, and may be gone once those are mended.
bool Accepts(const value& document) {
    constexpr std::size_t mostTold = 20;
    const DocumentFindings found = CheckDocument(document);
    for (std::size_t i = 0; i < found.errors.size() && i < mostTold; ++i)
        Say(found.errors[i]);
    if (found.errors.size() > mostTold)
        Say("and " + std::to_string(found.errors.size() - mostTold) + " more");
    for (std::size_t i = 0; found.errors.empty() && i < found.warnings.size(); ++i)
        Say("note: " + found.warnings[i]);
    return found.errors.empty();
}

}  // namespace

int ReadAsked(const QueryOptions& options, TextConditions* conditions, value* document) {
    std::string problem;
    const bool isThere = ReadTextConditions(options, conditions, &problem) &&
                         GetDocument(options, *conditions, document, &problem);
    if (Interrupted())
        return exitCode::interrupted;
    if (!isThere)
        Say(problem);
    return isThere && Accepts(*document) ? exitCode::done : exitCode::usage;
}

}  // namespace zel
