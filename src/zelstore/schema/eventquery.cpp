#include "zelstore/schema/eventquery.h"

#include <algorithm>

namespace ZEL::Schema {

using web::json::value;

namespace {

constexpr const utility::char_t* keyQuery = ZEL_TEXT("event_query");

bool ReadFlag(const Members& in, TextView key, bool absent) {
    const value* const flag = in.Find(key);
    return flag != nullptr ? flag->as_bool() : absent;
}

}  // namespace

void EventQuery::FromJson(const value& document) {
    *this = EventQuery();
    const value* const query = Members(document).Find(keyQuery);
    if (query == nullptr)
        return;
    static_cast<void>(query->as_object());  // throws for anything but an object
    const Members in(*query);
    if (const value* const uid = in.Find(ZEL_TEXT("command_uid")))
        command_uid = uid->as_string();
    if (const value* const list = in.Find(ZEL_TEXT("events"))) {
        events.reserve(list->as_array().size());
        for (const value& element : list->as_array()) {
            Event event;
            event.FromJson(element);
            // Entered by deep copy: a target whose number has no class is lost here and sets no
            // condition.
            events.push_back(static_cast<const Event&>(event));
        }
    }
    if (const value* const limit = in.Find(ZEL_TEXT("limit_result_count")))
        limit_result_count = static_cast<std::int32_t>(ReadNumber32(*limit));
    include_enrichments = ReadFlag(in, ZEL_TEXT("include_enrichments"), false);
    no_live_enriched_events = ReadFlag(in, ZEL_TEXT("no_live_enriched_events"), false);
}

void EventQuery::ToJson(value& out) const {
    value query = value::object(true);
    if (!command_uid.empty())
        query[ZEL_TEXT("command_uid")] = value::string(command_uid);
    if (!events.empty()) {
        value list = value::array(events.size());
        for (std::size_t i = 0; i < events.size(); ++i)
            events[i].ToJson(list[i]);
        query[ZEL_TEXT("events")] = std::move(list);
    }
    query[ZEL_TEXT("limit_result_count")] = value::number(limit_result_count);
    query[ZEL_TEXT("include_enrichments")] = value::boolean(include_enrichments);
    query[ZEL_TEXT("no_live_enriched_events")] = value::boolean(no_live_enriched_events);
    out = value::object(true);
    out[keyQuery] = std::move(query);
}

bool EventQuery::IsValid() const {
    return std::all_of(events.begin(), events.end(),
                       [](const Event& event) { return event.IsValid(); });
}

}  // namespace ZEL::Schema
