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
    // Takes over the former actor and target where they are of the class that is needed.
    void ReadArtifacts(const Members& in);
};

}  // namespace ZEL::Schema
