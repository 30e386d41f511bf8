#include "zelstore/keystate.h"

#include "common/hostservices.h"
#include "zelstore/database/keyformat.h"
#include "zelstore/schema/timetext.h"

namespace ZEL {

namespace {

void AppendDigits(std::wstring* key, std::uint32_t number) {
    const std::string digits = TenDigits(number);
    key->append(digits.begin(), digits.end());
}

}  // namespace

HRESULT KeyState::MakeReceiveKey(std::wstring* key) {
    const wm::Hold hold(keyLock_);
    Schema::Text now;
    const HRESULT result = Schema::FormatTimestamp(wm::Clock().UtcNow(), &now);
    if (Failed(result))
        return result;
    const std::wstring time(now.begin(), now.end());
    if (time != lastReceiveTime_) {
        lastReceiveTime_ = time;
        receiveCounter_ = 0;
    }
    ++receiveCounter_;
    *key = L"r<receive_time>" + time + L"<sequence>";
    AppendDigits(key, receiveCounter_);
    return hr::ok;
}

void KeyState::AppendCounterLocked(std::wstring_view baseKey, std::wstring* key) {
    ++enrichmentCounter_;
    key->assign(baseKey).append(L"<silent_sequence>");
    AppendDigits(key, enrichmentCounter_);
}

HRESULT KeyState::MakeEnrichmentKey(std::wstring_view baseKey, std::wstring* key) {
    const wm::Hold hold(keyLock_);
    AppendCounterLocked(baseKey, key);
    return hr::ok;
}

HRESULT KeyState::MakeFlaggedEnrichmentKey(std::wstring_view baseKey, bool silent,
                                           std::wstring* key) {
    const wm::Hold hold(keyLock_);
    AppendCounterLocked(baseKey, key);
    key->append(silent ? L"<silent_enrichment>1" : L"<silent_enrichment>0");
    return hr::ok;
}

}  // namespace ZEL
