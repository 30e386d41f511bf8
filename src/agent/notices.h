#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/admission.h"
#include "agent/agentlog.h"
#include "agent/spool.h"
#include "zelstore/ieventstore.h"

namespace zel {

// What befell the service, as events in its own store: where events are missing a timeline says so.
// Each is one record of object type etw and action generic, with the facility "zel";
// docs/service.md tells the members. It is kept in the spool from Add on until it is accepted, also
// over a restart, and then goes the way of all events. Any thread.
class Notices {
public:
    // All outlive this.
    Notices(Spool& spool, Admission& admission, ZEL::IEventStore7& store, AgentLog& log)
        : spool_(spool), admission_(admission), store_(store), log_(log) {}
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;

    // Members of the notice beside its times: numbers, or texts.
    using Facts = std::vector<std::pair<std::string_view, std::string>>;

    // `what` is one of few constant texts. Both times are of the store's form. `events`: how many
    // are missing, where that is known; else 0.
    void Add(std::string_view what, const std::string& begin, const std::string& end,
             std::uint64_t events, const Facts& facts = {});
    // Once the spool is open, and ahead of Look: what was not running until now, by the last sign
    // of life of the process before, and what that one has left.
    void Begin(const std::string& lastSign);
    // To be called about once a second: a sign of life, now and then, and what found no room.
    void Look();
    // Behind the last event: the service ends in order.
    void End();
    // While nothing is accepted: the state outlives the process.
    void SetStopped(std::string_view why);
    void SetRunning();

private:
    void Offer(const std::string& name, const std::string& record);
    void Sign(std::string_view how);

    Spool& spool_;
    Admission& admission_;
    ZEL::IEventStore7& store_;
    AgentLog& log_;
    std::mutex mutex_;
    std::map<std::string, std::string> waiting_;  // by the name of its mark
    std::uint64_t nextSign_ = 0;                  // in ticks
};

}  // namespace zel
