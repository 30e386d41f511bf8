#pragma once

#include <cpprest/json.h>

#include <string>

namespace zel {

// How a document that was checked is to be run so that each row is printed once, and no more rows
// than asked for. The store runs sub-queries one after the other: what several of them match comes
// several times, and a limit may be passed by one.
struct QueryPlan {
    std::string document;   // for the store
    bool distinct = false;  // rows may come twice
    int printLimit = -1;    // most rows to print; negative means no limit
};
QueryPlan PlanQuery(const web::json::value& document);

}  // namespace zel
