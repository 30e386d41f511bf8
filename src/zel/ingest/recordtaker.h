#pragma once

#include <cstdint>
#include <string>

#include "common/countedptr.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/ingest/follow.h"
#include "zel/ingest/lineproblems.h"
#include "zel/ingest/repeatedkeys.h"
#include "zel/terminal/output.h"

namespace zel {

// Puts the records of lines into the store, each with its receive-time row unless that is not
// wanted, and keeps account of them. For one thread. What it counts is what the store's queue has
// answered; that a record was stored nobody knows before the session is closed.
class RecordTaker {
public:
    // The first two go on with the next line, the others end the run.
    enum class Outcome {
        taken,     // or, where only keys are wanted, its key was made
        rejected,  // the line is no good record, for the reason given
        refused,   // the store takes no more, which was told
        ended      // interrupted while the store had no room, or nobody reads the keys
    };
    // Records that the store's queue took; what became of them the session tells.
    struct Account {
        std::uint64_t taken = 0;
        std::uint64_t refused = 0;      // the store did not take them
        std::uint64_t rowsRefused = 0;  // taken, but not the receive-time row
        std::uint64_t replaced = 0;     // another record of this run had the key
        std::uint64_t repeated = 0;     // the same record of this run had the key
    };

    // `follower`, which may be null, makes the receive-time keys; without one keys may be printed
    // to `output`. All must outlive the taker.
    RecordTaker(StoreSession& store, const IngestOptions& options, Follower* follower,
                Output& output)
        : store_(store), options_(options), follower_(follower), output_(output) {}

    // A line that was read; nothing of it is kept. `*problem` is filled for a rejected one. Waits
    // for as long as the queue is full, unless the program is interrupted. A record that waits then
    // is neither taken nor refused.
    Outcome Take(const std::string& line, LineProblem* problem);

    // Where keys alone are made, `taken` counts these.
    const Account& Counts() const noexcept { return counts_; }
    // Whether `replaced` and `repeated` are exact; otherwise they are lower bounds.
    bool KnowsAllKeys() const noexcept { return keys_.Complete(); }

private:
    // Leaves the key in key_, too.
    bool MakeKey(const std::string& line, ZEL::IStringValue& text, std::string* keyText,
                 LineProblem* problem);
    Outcome Store(const std::string& key, const std::string& line, ZEL::IStringValue& text);
    // Once the record is in the queue: one that was not taken replaces nothing.
    void CountRepeat(const std::string& key, const std::string& line);
    Outcome Insert(ZEL::IStringValue* key, ZEL::IStringValue* value);
    Outcome InsertReceiveRow(const std::string& eventKey);

    StoreSession& store_;
    const IngestOptions& options_;
    Follower* const follower_;
    Output& output_;
    RepeatedKeys keys_;
    Account counts_;
    ZEL::CountedPtr<ZEL::IStringValue> key_;  // of the record in hand
};

}  // namespace zel
