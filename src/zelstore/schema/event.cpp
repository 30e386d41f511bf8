#include "zelstore/schema/event.h"

// An event is read and written member by member, since the two orders differ: the type stands among
// the first when an event is read and behind the times when it is written. What each member looks
// like is the matter of its own class.
//
// Reading replaces all that the object held, with one exception that documents rely on: once a text
// has said `enable`, the event goes on to write it. Keys that nothing here knows are passed over.
// Nothing is required; whether a record has what its key needs is asked where the key is made.

namespace ZEL::Schema {

using web::json::value;

namespace {

void WriteArtifact(value& out, TextView key, const std::unique_ptr<ZelSchemaParser>& object) {
    if (!object)
        return;
    value nested;
    object->ToJson(nested);
    out[Text(key)] = std::move(nested);
}

// For objects and fields alike.
template <typename... T>
bool PresentAreValid(const T&... each) {
    return ((!each || each->IsValid()) && ...);
}

}  // namespace

void Event::FromJson(const value& json) {
    Read(Members(json));
}

// What is absent or empty is left out, but for the artifacts and the filter, which are always
// written.
void Event::ToJson(value& out) const {
    out = value::object(true);
    value artifacts = value::object(true);
    WriteArtifact(artifacts, names::actor, actor);
    WriteArtifact(artifacts, names::target, target);
    WriteArtifact(artifacts, names::result, result);
    out[Text(names::artifacts)] = std::move(artifacts);
    WriteNames(out, names::action, ActionTypes(), action);
    WriteField(out, names::begin_time, begin_time);
    WriteField(out, names::receive_time, receive_time);
    WriteField(out, names::end_time, end_time);
    WriteField(out, names::type_id, type_id);
    WriteField(out, names::correlation_uid, correlation_uid);
    out[Text(names::filter)] = value::string(Text(filter == 0 ? names::record : names::submit));
    WriteField(out, names::ref_uid, ref_uid);
    if (event_count > 0)
        out[Text(names::event_count)] = value::number(event_count);
    if (seq_num != 0)
        out[Text(names::seq_num)] = value::number(seq_num);
    if (enable_present)
        out[Text(names::enable)] = value::boolean(enable);
}

// Nothing on the way of a record or a query asks this; it is for who makes events by code.
bool Event::IsValid() const {
    const bool saysSomething =
        actor || target || result || begin_time || end_time || correlation_uid || type_id;
    if (!saysSomething)
        return false;
    // Only processes act.
    if (actor && (!actor->IsValid() || actor->GetObjectTypeId() != objectType::process))
        return false;
    return PresentAreValid(target, result, begin_time, end_time, type_id, correlation_uid);
}

}  // namespace ZEL::Schema
