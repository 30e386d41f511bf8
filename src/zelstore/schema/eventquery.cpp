#include "zelstore/schema/eventquery.h"

#include <algorithm>

// A query is read as mildly as a record: what is missing keeps its default, and what has the wrong
// JSON type throws. What makes sense as a question is asked later, by the engine for each sub-query
// and, ahead of all, by whoever wrote the document.

namespace ZEL::Schema {

using web::json::value;

void EventQuery::FromJson(const value& document) {
    *this = EventQuery();
    const auto query = ReadMembers(document, names::event_query);
    if (!query)
        return;
    const Members& in = *query;
    if (const value* const uid = in.Find(names::command_uid))
        command_uid = uid->as_string();
    if (const value* const list = in.Find(names::events)) {
        events.reserve(list->as_array().size());
        for (const value& element : list->as_array()) {
            Event event;
            event.FromJson(element);
            // Entered by deep copy: a target whose number has no class is lost here and sets no
            // condition.
            events.push_back(static_cast<const Event&>(event));
        }
    }
    limit_result_count = static_cast<std::int32_t>(
        ReadNumber(in, names::limit_result_count, static_cast<std::uint32_t>(limit_result_count)));
    include_enrichments = ReadFlag(in, names::include_enrichments).value_or(false);
    no_live_enriched_events = ReadFlag(in, names::no_live_enriched_events).value_or(false);
}

void EventQuery::ToJson(value& out) const {
    value query = value::object(true);
    if (!command_uid.empty())
        query[Text(names::command_uid)] = value::string(command_uid);
    if (!events.empty()) {
        value list = value::array(events.size());
        for (std::size_t i = 0; i < events.size(); ++i)
            events[i].ToJson(list[i]);
        query[Text(names::events)] = std::move(list);
    }
    query[Text(names::limit_result_count)] = value::number(limit_result_count);
    query[Text(names::include_enrichments)] = value::boolean(include_enrichments);
    query[Text(names::no_live_enriched_events)] = value::boolean(no_live_enriched_events);
    out = value::object(true);
    out[Text(names::event_query)] = std::move(query);
}

bool EventQuery::IsValid() const {
    return std::all_of(events.begin(), events.end(),
                       [](const Event& event) { return event.IsValid(); });
}

}  // namespace ZEL::Schema
