#include "zel/query/queryplan.h"

#include <algorithm>
#include <limits>

namespace zel {

namespace {

using web::json::value;

constexpr const char* limitKey = "limit_result_count";

bool HasTrue(const value& query, const char* key) {
    return query.has_field(key) && query.at(key).as_bool();
}

}  // namespace

// Of receipts at least one, as the store itself makes one of 0.
std::int64_t QueryPlan::FirstRows() const {
    if (limit < 0 || asksForAll)
        return -1;
    return byReceive ? std::max<std::int64_t>(limit, 1) : limit + 1;
}

// A document without a limit is passed on without one.
std::string QueryPlan::TextFor(std::int64_t rows) const {
    value forStore = document;
    const bool fits = rows >= 0 && rows <= std::numeric_limits<std::int32_t>::max();
    if (fits || limit >= 0)
        forStore["event_query"][limitKey] = value(static_cast<std::int32_t>(fits ? rows : -1));
    return forStore.serialize();
}

QueryPlan PlanQuery(const value& document) {
    const value& query = document.at("event_query");
    const web::json::array& events = query.at("events").as_array();
    QueryPlan plan;
    plan.document = document;
    plan.byReceive = std::any_of(events.begin(), events.end(), [](const value& event) {
        return event.has_field("receive_time");
    });
    plan.joinsEnrichments = HasTrue(query, "include_enrichments");
    if (query.has_field(limitKey))
        plan.limit = query.at(limitKey).as_number().to_int64();
    // A document's 0 gives one result, as in the store itself.
    if (plan.limit == 0)
        plan.limit = 1;
    return plan;
}

}  // namespace zel
