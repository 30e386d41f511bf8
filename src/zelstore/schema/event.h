#pragma once

#include <vector>

#include "zelstore/schema/objectfactory.h"
#include "zelstore/schema/valueclasses.h"

namespace ZEL::Schema {

// One event: a record that a sensor submits, or one sub-query of a query. In a record its fields
// are facts, in a query conditions, and the JSON has the same form.
//
// The actor is who did it (a process), the target what it was done to, the result what came of it;
// each is of any class, and null when the JSON has none. Copying is deep; an object whose number
// has no class is lost in the copy, which is why a sub-query with such a target asks for nothing of
// it.
//
// Members are public: an event is data, and who fills or reads one is the parser, the range step
// and the extraction of key fields. Times are text as they were given; nothing here checks or
// shifts them. May be filled anew any number of times, which keeps its memory for the next event.
class Event final : public ZelSchemaParser {
public:
    Event() : ZelSchemaParser(objectType::event) {}
    void ToJson(web::json::value& out) const override;
    // Throws as the base tells; what is missing takes the value that it has in a new event.
    void FromJson(const web::json::value& in) override;
    // What an event reads; `In` are the members of its JSON, as the library or the fast reader has
    // them.
    template <typename In>
    void Read(const In& in);
    // Whether it says anything, a process is its actor, and what it says is valid.
    bool IsValid() const override;

    // For the step that turns operators on times into a range: both replace, and copy first.
    void SetBeginTime(const DatePair& time) { begin_time.Set(time); }
    void SetEndTime(const DatePair& time) { end_time.Set(time); }

    OwnedObject actor, target, result;
    std::vector<std::int32_t> action;  // numbers of the vocabulary, in the order of the JSON
    Field<IntegerPair<std::uint32_t>> type_id;
    Field<DatePair> begin_time, receive_time, end_time;
    Field<StringPair> correlation_uid;
    std::int32_t filter = 0;        // 0 record, 1 submit
    std::int32_t event_count = -1;  // carried along; negative when absent
    std::uint32_t seq_num = 0;      // the event's number within its time
    bool enable = false;
    bool enable_present = false;  // once set it stays, also when the event is parsed again
    Field<GuidPair> ref_uid;

private:
    template <typename In>
    void ReadArtifacts(const In& in);
};

// The objects of the former event are handed on, so that one of the same class is filled anew and
// nothing is allocated. That matters where keys are made: most records look alike.
template <typename In>
void Event::ReadArtifacts(const In& in) {
    OwnedObject formerActor = std::move(actor);
    OwnedObject formerTarget = std::move(target);
    result.reset();
    const auto artifacts = ReadMembers(in, names::artifacts);
    if (!artifacts)
        return;
    actor = ReadObject(*artifacts, names::actor, std::move(formerActor));
    target = ReadObject(*artifacts, names::target, std::move(formerTarget));
    result = ReadObject(*artifacts, names::result, nullptr);
}

template <typename In>
void Event::Read(const In& in) {
    ReadArtifacts(in);
    ReadField(in, names::type_id, type_id);
    ReadNames(in, names::action, ActionTypes(), action);
    ReadField(in, names::begin_time, begin_time);
    ReadField(in, names::receive_time, receive_time);
    ReadField(in, names::end_time, end_time);
    ReadField(in, names::correlation_uid, correlation_uid);
    filter = ReadsOther(in, names::filter, names::record) ? 1 : 0;  // any other text is `submit`
    ReadField(in, names::ref_uid, ref_uid);
    event_count = static_cast<std::int32_t>(
        ReadNumber(in, names::event_count, static_cast<std::uint32_t>(-1)));
    seq_num = ReadNumber(in, names::seq_num, 0);
    const std::optional<bool> said = ReadFlag(in, names::enable);
    enable = said.value_or(false);
    enable_present = enable_present || said;
}

}  // namespace ZEL::Schema
