#include "zelstore/keys/keycounter.h"

#include "common/hostservices.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/receivekey.h"

// Keys of receive-time rows and of enrichments must differ though their time or their event is the
// same; a number behind it sees to that. The clock may be set back: rows of a time that was used
// before then begin at 1 again and replace the earlier ones.

namespace ZEL {

namespace {

// `more` is ASCII.
std::wstring Joined(std::wstring_view text, std::string_view more) {
    std::wstring joined;
    joined.reserve(text.size() + more.size());
    joined.append(text).append(more.begin(), more.end());
    return joined;
}

}  // namespace

// Many rows may come in a millisecond, whose text is made once.
std::string KeyCounter::MakeReceiveKey() {
    const wm::Hold hold(keyLock_);
    const wm::SystemTime now = wm::Clock().UtcNow();
    if (now != lastReceiveTime_ || lastReceiveText_.empty()) {
        lastReceiveText_ = wm::FormatUtc(now);
        lastReceiveTime_ = now;
        receiveCounter_ = 0;
    }
    return ZEL::MakeReceiveKey(lastReceiveText_, ++receiveCounter_);
}

std::wstring KeyCounter::MakeEnrichmentKey(std::wstring_view baseKey) {
    const wm::Hold hold(keyLock_);
    return Joined(baseKey, EnrichmentSuffix(++enrichmentCounter_));
}

std::wstring KeyCounter::MakeFlaggedEnrichmentKey(std::wstring_view baseKey, bool silent) {
    const wm::Hold hold(keyLock_);
    return Joined(baseKey, FlaggedEnrichmentSuffix(++enrichmentCounter_, silent));
}

}  // namespace ZEL
