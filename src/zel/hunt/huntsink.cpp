#include "zel/hunt/huntsink.h"

#include <algorithm>

#include "zel/query/resultintake.h"
#include "zel/terminal/messages.h"

namespace zel {

bool HuntSink::Fits(std::string_view event) {
    if (Interrupted())  // what came with the same message need not be tested
        return false;
    if (ways_.first != nullptr && !ways_.first->Fits(event))
        return false;
    // Marks are joined to events only where marks are made, and rules are not to find these.
    if (ways_.marks != nullptr)
        event = event_.assign(EventOf(event, true)).append("}");
    if (run_.Test(event))
        return !run_.Hits().empty();
    ++untested_;
    return false;
}

bool HuntSink::Take(const FoundEvent& event) {
    const std::string_view own = ways_.marks != nullptr ? std::string_view(event_) : event.text;
    for (const std::uint32_t rule : run_.Hits()) {
        if (rule < ways_.wanted && !correlator_.Hides(rule) &&
            !TakeHit(rule, {own, event.key, event.host}, event.text))
            return false;
    }
    if (correlator_.IsIdle())
        return true;
    const auto& counted = correlator_.Take(run_);
    return std::all_of(counted.begin(), counted.end(),
                       [this](const CorrelationHit& hit) { return TakeCounted(hit); });
}

bool HuntSink::TakeHit(std::uint32_t rule, const FoundEvent& event, std::string_view result) {
    ++hits_;
    hasHit_.resize(rules_.Rules().size());
    hasHit_[rule] = true;
    const Rule& found = rules_.Rules()[rule];
    if (ways_.summary != nullptr && reader_.Read(event.text)) {
        const std::string time(reader_.Value(*FindColumn("time")).value_or(""));
        const bool isOfFleet = !event.host.empty();
        ways_.summary->Add(
            rule, isOfFleet ? event.host : reader_.Value(*FindColumn("computer")).value_or(""),
            time);
    }
    if (ways_.marks != nullptr && !ways_.marks->Add(found, event.text, result))
        return false;
    return ways_.form == nullptr || output_.Write(ways_.form->Hit(found, event, run_.WhyOf(rule)));
}

// Several events make such a hit, so that it can be stored with none of them.
bool HuntSink::TakeCounted(const CorrelationHit& hit) {
    if (hit.rule >= ways_.wanted)
        return true;
    ++hits_;
    hasHit_.resize(rules_.Rules().size());
    hasHit_[hit.rule] = true;
    if (ways_.summary != nullptr)
        ways_.summary->Add(hit.rule, "", hit.last);
    return ways_.form == nullptr ||
           output_.Write(ways_.form->Counted(rules_.Rules()[hit.rule], hit));
}

bool HuntSink::Finish() {
    return ways_.form == nullptr || output_.Write(ways_.form->End());
}

std::size_t HuntSink::RulesThatHit() const {
    return static_cast<std::size_t>(std::count(hasHit_.begin(), hasHit_.end(), true));
}

}  // namespace zel
