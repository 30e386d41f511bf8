#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "hunt/correlator.h"
#include "hunt/ruleset.h"
#include "records/recordreader.h"
#include "zel/hunt/hitmarks.h"
#include "zel/hunt/huntforms.h"
#include "zel/hunt/huntsummary.h"
#include "zel/query/eventfilter.h"
#include "zel/results/eventsink.h"
#include "zel/terminal/output.h"

namespace zel {

// What a hunt does with the events of a walk. As the filter it tests them, so that only those that
// a rule fits go further; as the sink it takes these, once each, and prints, counts and marks their
// hits. All that it is given must outlive it. For one thread.
class HuntSink final : public EventFilter, public EventSink {
public:
    struct Ways {
        HitForm* form = nullptr;         // null: hits are not printed one by one
        HuntSummary* summary = nullptr;  // null: they are not counted
        HitMarks* marks = nullptr;       // null: they are not stored
        EventFilter* first = nullptr;    // what else is asked of events; null: nothing
        std::size_t wanted = 0;          // so many of the first rules are told
    };
    HuntSink(const RuleSet& rules, Ways ways, Output& output)
        : rules_(rules), run_(rules), correlator_(rules), ways_(ways), output_(output) {}

    bool Fits(std::string_view event) override;
    std::uint64_t Untested() const noexcept override {
        return untested_ + (ways_.first != nullptr ? ways_.first->Untested() : 0);
    }
    bool Take(const FoundEvent& event) override;
    bool Flush() override { return output_.Flush(); }
    bool Finish() override;

    std::uint64_t Hits() const noexcept { return hits_; }
    // Rules with a hit.
    std::size_t RulesThatHit() const;
    const Correlator& Counter() const noexcept { return correlator_; }

private:
    bool TakeHit(std::uint32_t rule, const FoundEvent& event, std::string_view result);
    bool TakeCounted(const CorrelationHit& hit);

    const RuleSet& rules_;
    RuleRun run_;
    Correlator correlator_;
    const Ways ways_;
    Output& output_;
    RecordReader reader_;
    std::string event_;  // without what was joined to it, where something may be
    std::uint64_t hits_ = 0, untested_ = 0;
    std::vector<bool> hasHit_;
};

}  // namespace zel
