#include "zelstore/schema/event.h"

#include "zelstore/schema/fieldlists.h"
#include "zelstore/schema/objectfactory.h"

namespace ZEL::Schema {

using web::json::value;

namespace {

void WriteArtifact(value& out, const utility::char_t* key,
                   const std::unique_ptr<ZelSchemaParser>& object) {
    if (!object)
        return;
    value nested;
    object->ToJson(nested);
    out[key] = std::move(nested);
}

bool ValidIfPresent(const std::unique_ptr<ZelSchemaParser>& object) {
    return !object || object->IsValid();
}

}  // namespace

Event::Event(const Event& other)
    : ZelSchemaParser(other),
      actor(CloneObject(other.actor.get())),
      target(CloneObject(other.target.get())),
      result(CloneObject(other.result.get())),
      action(other.action),
      type_id(other.type_id),
      begin_time(other.begin_time),
      receive_time(other.receive_time),
      end_time(other.end_time),
      correlation_uid(other.correlation_uid),
      filter(other.filter),
      event_count(other.event_count),
      seq_num(other.seq_num),
      enable(other.enable),
      enable_present(other.enable_present),
      ref_uid(other.ref_uid) {}

Event& Event::operator=(const Event& other) {
    if (this != &other)
        *this = Event(other);
    return *this;
}

void Event::ReadArtifacts(const Members& in) {
    std::unique_ptr<ZelSchemaParser> formerActor = std::move(actor);
    std::unique_ptr<ZelSchemaParser> formerTarget = std::move(target);
    result.reset();
    const value* const artifacts = in.Find(ZEL_TEXT("artifacts"));
    if (artifacts == nullptr)
        return;
    static_cast<void>(artifacts->as_object());  // throws for anything but an object
    const Members members(*artifacts);
    if (const value* const found = members.Find(ZEL_TEXT("actor")))
        actor = CreateObjectFromJson(*found, std::move(formerActor));
    if (const value* const found = members.Find(ZEL_TEXT("target")))
        target = CreateObjectFromJson(*found, std::move(formerTarget));
    if (const value* const found = members.Find(ZEL_TEXT("result")))
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
    ReadField(in, ZEL_TEXT("type_id"), type_id);
    if (const value* const names = in.Find(ZEL_TEXT("action")))
        for (const value& name : names->as_array())
            action.push_back(ActionTypes().Number(name.as_string()));
    ReadFields(in, ZEL_TEXT("begin_time"), begin_time, ZEL_TEXT("receive_time"), receive_time,
               ZEL_TEXT("end_time"), end_time, ZEL_TEXT("correlation_uid"), correlation_uid);
    if (const value* const kind = in.Find(ZEL_TEXT("filter")))
        filter = kind->as_string() == ZEL_TEXT("record") ? 0 : 1;
    ReadField(in, ZEL_TEXT("ref_uid"), ref_uid);
    if (const value* const count = in.Find(ZEL_TEXT("event_count")))
        event_count = static_cast<std::int32_t>(ReadNumber32(*count));
    if (const value* const number = in.Find(ZEL_TEXT("seq_num")))
        seq_num = ReadNumber32(*number);
    if (const value* const enabled = in.Find(ZEL_TEXT("enable"))) {
        enable = enabled->as_bool();
        enable_present = true;
    }
}

void Event::ToJson(value& out) const {
    out = value::object(true);
    value artifacts = value::object(true);
    WriteArtifact(artifacts, ZEL_TEXT("actor"), actor);
    WriteArtifact(artifacts, ZEL_TEXT("target"), target);
    WriteArtifact(artifacts, ZEL_TEXT("result"), result);
    out[ZEL_TEXT("artifacts")] = std::move(artifacts);
    if (!action.empty()) {
        value names = value::array(action.size());
        for (std::size_t i = 0; i < action.size(); ++i)
            names[i] = value::string(ActionTypes().Name(action[i]));
        out[ZEL_TEXT("action")] = std::move(names);
    }
    WriteFields(out, ZEL_TEXT("begin_time"), begin_time, ZEL_TEXT("receive_time"), receive_time,
                ZEL_TEXT("end_time"), end_time, ZEL_TEXT("type_id"), type_id,
                ZEL_TEXT("correlation_uid"), correlation_uid);
    out[ZEL_TEXT("filter")] = value::string(filter == 0 ? ZEL_TEXT("record") : ZEL_TEXT("submit"));
    WriteField(out, ZEL_TEXT("ref_uid"), ref_uid);
    if (event_count > 0)
        out[ZEL_TEXT("event_count")] = value::number(event_count);
    if (seq_num != 0)
        out[ZEL_TEXT("seq_num")] = value::number(seq_num);
    if (enable_present)
        out[ZEL_TEXT("enable")] = value::boolean(enable);
}

bool Event::IsValid() const {
    const bool saysSomething =
        actor || target || result || begin_time || end_time || correlation_uid || type_id;
    if (!saysSomething)
        return false;
    if (actor && (!actor->IsValid() || actor->GetObjectTypeId() != objectType::process))
        return false;
    return ValidIfPresent(target) && ValidIfPresent(result) &&
           PresentAreValid(begin_time, end_time, type_id, correlation_uid);
}

}  // namespace ZEL::Schema
