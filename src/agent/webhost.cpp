#include "agent/webhost.h"

#include "agent/askroutes.h"
#include "agent/following/followplace.h"

namespace zel {

std::string AgentWebHost::Settled() const {
    const std::string key = parts_.spool.Settled();
    return key.empty() ? key : PositionOf(PlaceBehind(key));
}

void AgentWebHost::Annotate(std::string key, std::string json,
                            const std::function<void(bool isStored)>& done) {
    const auto delivery = std::make_shared<Delivery>();
    delivery->enrichments.push_back({std::move(key) + SilentSuffixOfNow(), std::move(json)});
    parts_.admission.Submit(delivery, [done](Verdict verdict) { done(verdict == Verdict::taken); });
}

}  // namespace zel
