#include "zelstore/schema/eventquery.h"

#include <algorithm>

namespace ZEL::Schema {

using web::json::value;

namespace {

constexpr const utility::char_t* keyQuery = ZEL_TEXT("event_query");

bool ReadFlag(const value& in, const utility::char_t* key, bool absent) {
    return in.has_field(key) ? Member(in, key).as_bool() : absent;
}

}  // namespace

void EventQuery::FromJson(const value& document) {
    *this = EventQuery();
    if (!document.has_field(keyQuery))
        return;
    const value& in = Member(document, keyQuery);
    static_cast<void>(in.as_object());  // throws for anything but an object
    if (in.has_field(ZEL_TEXT("command_uid")))
        command_uid = Member(in, ZEL_TEXT("command_uid")).as_string();
    if (in.has_field(ZEL_TEXT("events"))) {
        const web::json::array& list = Member(in, ZEL_TEXT("events")).as_array();
        events.reserve(list.size());
        for (const value& element : list) {
            Event event;
            event.FromJson(element);
            // Entered by deep copy: a target whose number has no class is lost here and sets no
            // condition.
            events.push_back(static_cast<const Event&>(event));
        }
    }
    if (in.has_field(ZEL_TEXT("limit_result_count")))
        limit_result_count =
            static_cast<std::int32_t>(ReadNumber32(Member(in, ZEL_TEXT("limit_result_count"))));
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
