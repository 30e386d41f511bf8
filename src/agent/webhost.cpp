#include "agent/webhost.h"

#include "agent/askroutes.h"

namespace zel {

void AgentWebHost::Annotate(std::string key, std::string json,
                            const std::function<void(bool isStored)>& done) {
    const auto delivery = std::make_shared<Delivery>();
    delivery->enrichments.push_back({std::move(key) + SilentSuffixOfNow(), std::move(json)});
    parts_.admission.Submit(delivery, [done](Verdict verdict) { done(verdict == Verdict::taken); });
}

}  // namespace zel
