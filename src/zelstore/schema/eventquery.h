#pragma once

#include <string>
#include <vector>

#include "zelstore/schema/event.h"

namespace ZEL::Schema {

// A document that a command carries; the command's identifier is kept and never used.
class ZelSchemaParser2 : public ZelSchemaParser {
public:
    // Empty when the command gave none.
    virtual const Text& GetCommandUid() const { return command_uid; }
    // A null pointer leaves the value alone.
    virtual void SetCommandUid(const utility::char_t* uid) {
        if (uid != nullptr)
            command_uid = uid;
    }
    virtual void SetCommandUid(const Text& uid) { command_uid = uid; }

    Text command_uid;

protected:
    using ZelSchemaParser::ZelSchemaParser;
};

// A query as its JSON document says it. Everything in it is optional.
//
// Reading replaces all it held. It checks the form alone: which conditions make sense is found out
// when the query runs, one sub-query at a time.
class EventQuery final : public ZelSchemaParser2 {
public:
    EventQuery() : ZelSchemaParser2(objectType::eventQuery) {}
    void ToJson(web::json::value& out) const override;
    // Reads {"event_query":{...}}; a document without that leaves the defaults.
    void FromJson(const web::json::value& document) override;
    // Whether each sub-query is; a query without any is valid.
    bool IsValid() const override;

    // Each has times, an actor, a target and actions of its own; only the limit and the two flags
    // are common.
    std::vector<Event> events;             // the sub-queries, run in this order
    std::int32_t limit_result_count = -1;  // over all sub-queries; negative means no limit
    bool include_enrichments = false;
    bool no_live_enriched_events = false;
};

}  // namespace ZEL::Schema
