#include "agent/web/countcache.h"

#include <utility>

namespace zel {

namespace {

constexpr std::size_t perEntry = 256;  // bytes, beside its texts

}  // namespace

void CountCache::ForgetLocked(Entries::iterator entry) {
    bytes_ -= entry->second.bytes;
    byName_.erase(entry->first);
    entries_.erase(entry);
}

// Whether it holds is asked without the lock, as the store's directory may be looked at.
std::shared_ptr<const void> CountCache::Find(const std::string& name, IStoreChanges& changes) {
    Kept found;
    {
        const std::lock_guard hold(mutex_);
        const auto known = byName_.find(name);
        if (known == byName_.end())
            return nullptr;
        entries_.splice(entries_.begin(), entries_, known->second);
        found = known->second->second;
    }
    if (changes.Holds(found.mark, found.range, found.readsEnrichments))
        return found.what;
    const std::lock_guard hold(mutex_);
    const auto known = byName_.find(name);
    if (known != byName_.end() && known->second->second.what == found.what)
        ForgetLocked(known->second);
    return nullptr;
}

void CountCache::Keep(const std::string& name, Kept kept) {
    kept.bytes += 2 * name.size() + kept.mark.size() + perEntry;
    if (kept.mark.empty() || kept.bytes > most_ / 2)
        return;
    const std::lock_guard hold(mutex_);
    if (const auto known = byName_.find(name); known != byName_.end())
        ForgetLocked(known->second);
    bytes_ += kept.bytes;
    entries_.emplace_front(name, std::move(kept));
    byName_[name] = entries_.begin();
    while (bytes_ > most_)
        ForgetLocked(std::prev(entries_.end()));
}

}  // namespace zel
