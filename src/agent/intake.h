#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agent/liveconfig.h"
#include "agent/spool.h"
#include "records/formats/lineformats.h"
#include "records/jsonfields.h"
#include "zelstore/ieventstore.h"

namespace zel {

// Why an event of a request is not taken. The kind is one of few constant texts, by which refusals
// are counted; the rest comes from the event and is for its sender alone.
struct IntakeProblem {
    std::string_view kind;
    std::string detail;

    std::string Text() const { return std::string(kind) + detail; }
};

// Makes records and keys of what one request holds, in any of the formats. Lines of several formats
// may follow one another. The number of an event that brings none is made of its text: requests
// come in any order and may come twice, so the same text gives the same key whenever it comes, and
// different events of one moment different ones. For one thread.
class Intake {
public:
    // `store` outlives this, and needs not be open. Of more than `most` events the others are
    // refused.
    Intake(ZEL::IEventStore7& store, LiveConfig::Snapshot config, std::uint64_t most);
    Intake(ZEL::IEventStore7& store, const LiveConfig::Snapshot& config)
        : Intake(store, config, config->items) {}

    // What came of one line: its records stand at the end of the delivery from `first` on. None and
    // no problem: an event that goes on with a later line.
    struct Outcome {
        std::size_t first = 0;
        std::size_t count = 0;
        IntakeProblem problem;  // an empty kind: none
    };
    // A line without its end. The text has to live until the next call. `given` names the event of
    // the line, else a member of it does, where one is set; of several events in one line each gets
    // a number behind it.
    Outcome TakeLine(std::string_view line, const std::string& given);
    // Events that wait for further lines come out: there are none, or none that are theirs.
    Outcome End();
    // The first line, as counted from 1 by TakeLine, whose event waits for further ones; 0: none.
    std::uint64_t HeldFrom() const noexcept { return formats_.HeldFrom(); }
    // A whole file of a format that does not come in lines. `onProblem` hears of each event that is
    // refused. False, with `*error`, when it can't be read to its end; what stands ahead is taken.
    bool TakeFile(const Format& format, std::string_view bytes, const std::string& id,
                  std::vector<std::pair<std::uint64_t, IntakeProblem>>* problems,
                  std::string* error);

    Delivery& Taken() noexcept { return taken_; }

private:
    // What the setting names in a JSON object; empty without either.
    std::string MemberId(std::string_view object);
    void TakeItem(SourceItem& item, const std::string& id, Outcome* outcome);
    void TakeRecord(const std::string& record, const std::string& id, Outcome* outcome);
    void TakeAll(const std::string& id, Outcome* outcome);

    ZEL::IEventStore7& store_;
    const LiveConfig::Snapshot config_;
    const std::uint64_t most_;
    Mapper mapper_;
    LineFormats formats_;
    SourceItem item_;
    JsonFields json_;
    SourceFields fields_;
    std::uint64_t lines_ = 0;
    std::string record_;
    Delivery taken_;
};

}  // namespace zel
