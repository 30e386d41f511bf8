#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "agent/web/countcache.h"
#include "common/countedptr.h"
#include "zelstore/ieventstore.h"

namespace zel {

// Of a store that is read alone: its files tell whether anybody has changed it. Any thread.
class FileChanges final : public IStoreChanges {
public:
    explicit FileChanges(std::string directory) : directory_(std::move(directory)) {}

    std::string Mark() override;
    bool Holds(const std::string& mark, const EventSpan&, bool) override { return mark == Mark(); }

private:
    const std::string directory_;
};

// Of a store of this process: whether anything came for the range, and no folder has come or gone.
// What is accepted and not in the store yet counts as if it came at any time from now on. Any
// thread.
class ArrivalChanges final : public IStoreChanges {
public:
    // `settled`: the receive-time key ahead of which all is in the store. Nothing is kept before it
    // has reached `accepted`, that of the last event of the process before. Both compare as texts.
    ArrivalChanges(ZEL::IEventStore7& store, std::string directory,
                   std::function<std::string()> settled, std::string accepted);

    // Events were accepted, ahead of their way into the store; in the order of their keys.
    // `range`: of their times.
    void OnAccepted(const std::string& lastReceiveKey, const EventSpan& range);

    std::string Mark() override;
    bool Holds(const std::string& mark, const EventSpan& range, bool readsEnrichments) override;

private:
    struct Arrival {
        std::string last;  // receive-time key
        EventSpan range;
    };

    std::string Folders() const;
    std::uint64_t Enrichments() const;

    const std::string directory_;
    const std::function<std::string()> settled_;
    const std::string accepted_;
    ZEL::CountedPtr<ZEL::IWriteProgress> progress_;
    std::mutex mutex_;
    std::deque<Arrival> arrivals_;
    std::string forgotten_;  // up to that key arrivals are not remembered
};

}  // namespace zel
