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

// The objects of the former event are handed on, so that one of the same class is filled anew and
// nothing is allocated. That matters where keys are made: most records look alike.
void Event::ReadArtifacts(const Members& in) {
    OwnedObject formerActor = std::move(actor);
    OwnedObject formerTarget = std::move(target);
    result.reset();
    const value* const artifacts = in.Find(names::artifacts);
    if (artifacts == nullptr)
        return;
    static_cast<void>(artifacts->as_object());  // throws for anything but an object
    const Members members(*artifacts);
    if (const value* const found = members.Find(names::actor))
        actor = CreateObjectFromJson(*found, std::move(formerActor));
    if (const value* const found = members.Find(names::target))
        target = CreateObjectFromJson(*found, std::move(formerTarget));
    if (const value* const found = members.Find(names::result))
        result = CreateObjectFromJson(*found);
}

void Event::FromJson(const value& json) {
    const Members in(json);
    action.clear();
    filter = 0;
    enable = false;
    event_count = -1;
    seq_num = 0;
    ReadArtifacts(in);
    ReadField(in, names::type_id, type_id);
    ReadNames(in, names::action, ActionTypes(), action);
    ReadField(in, names::begin_time, begin_time);
    ReadField(in, names::receive_time, receive_time);
    ReadField(in, names::end_time, end_time);
    ReadField(in, names::correlation_uid, correlation_uid);
    if (const value* const kind = in.Find(names::filter))
        filter = kind->as_string() == names::record ? 0 : 1;  // any other text is `submit`
    ReadField(in, names::ref_uid, ref_uid);
    if (const value* const count = in.Find(names::event_count))
        event_count = static_cast<std::int32_t>(ReadNumber32(*count));
    if (const value* const number = in.Find(names::seq_num))
        seq_num = ReadNumber32(*number);
    if (const value* const enabled = in.Find(names::enable)) {
        enable = enabled->as_bool();
        enable_present = true;
    }
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
