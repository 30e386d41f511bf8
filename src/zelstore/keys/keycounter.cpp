#include "zelstore/keys/keycounter.h"

#include "common/hostservices.h"
#include "zelstore/keys/keyformat.h"

namespace ZEL {

namespace {

void AppendDigits(std::wstring* key, std::uint32_t number) {
    const std::string digits = TenDigits(number);
    key->append(digits.begin(), digits.end());
}

}  // namespace

HRESULT KeyCounter::MakeReceiveKey(std::wstring* key) {
    const wm::Hold hold(keyLock_);
    const std::string now = wm::FormatUtc(wm::Clock().UtcNow());
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

void KeyCounter::AppendCounterLocked(std::wstring_view baseKey, std::wstring* key) {
    ++enrichmentCounter_;
    key->assign(baseKey).append(L"<silent_sequence>");
    AppendDigits(key, enrichmentCounter_);
}

HRESULT KeyCounter::MakeEnrichmentKey(std::wstring_view baseKey, std::wstring* key) {
    const wm::Hold hold(keyLock_);
    AppendCounterLocked(baseKey, key);
    return hr::ok;
}

HRESULT KeyCounter::MakeFlaggedEnrichmentKey(std::wstring_view baseKey, bool silent,
                                             std::wstring* key) {
    const wm::Hold hold(keyLock_);
    AppendCounterLocked(baseKey, key);
    key->append(silent ? L"<silent_enrichment>1" : L"<silent_enrichment>0");
    return hr::ok;
}

}  // namespace ZEL
