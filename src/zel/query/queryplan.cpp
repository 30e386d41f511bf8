#include "zel/query/queryplan.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace zel {

namespace {

using web::json::value;

// What a sub-query asks of the kind of target; empty when it asks nothing.
std::string TargetKind(const value& subQuery) {
    if (!subQuery.has_field("artifacts") || !subQuery.at("artifacts").has_field("target"))
        return "";
    return subQuery.at("artifacts").at("target").at("object_type").as_string();
}

bool MayOverlap(const web::json::array& events) {
    std::vector<std::string> kinds;
    for (const value& event : events) {
        // Receive-time rows are no events: the same one may have been received several times.
        if (event.has_field("receive_time"))
            return false;
        kinds.push_back(TargetKind(event));
    }
    std::sort(kinds.begin(), kinds.end());
    return kinds.size() > 1 &&
           (kinds.front().empty() || std::adjacent_find(kinds.begin(), kinds.end()) != kinds.end());
}

}  // namespace

QueryPlan PlanQuery(const value& document) {
    const value& query = document.at("event_query");
    const web::json::array& events = query.at("events").as_array();
    QueryPlan plan;
    plan.distinct = MayOverlap(events);
    const std::int64_t limit = query.has_field("limit_result_count")
                                   ? query.at("limit_result_count").as_number().to_int64()
                                   : -1;
    value forStore = document;
    if (events.size() > 1 && limit > 0) {
        plan.printLimit = static_cast<int>(limit);
        // Each row may come once for each sub-query, and the limit counts them all.
        const std::int64_t enough = limit * static_cast<std::int64_t>(events.size());
        if (plan.distinct)
            forStore["event_query"]["limit_result_count"] = value(static_cast<std::int32_t>(
                std::min<std::int64_t>(enough, std::numeric_limits<std::int32_t>::max())));
    }
    plan.document = forStore.serialize();
    return plan;
}

}  // namespace zel
