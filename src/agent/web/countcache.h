#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "agent/web/eventquestion.h"

namespace zel {

// Whether the store still holds what it held. Any thread.
class IStoreChanges {
public:
    // Of this moment: to be taken ahead of a walk. Empty: nothing that is found now may be kept.
    virtual std::string Mark() = 0;
    // Whether a walk of the range would find now what one that was begun behind the mark has found.
    // False where that is not certain. `readsEnrichments`: these are a part of what was found.
    virtual bool Holds(const std::string& mark, const EventSpan& range, bool readsEnrichments) = 0;

protected:
    ~IStoreChanges() = default;
};

// Answers that still hold, in bounded memory; the one that was not asked for longest goes first.
// Any thread.
class CountCache {
public:
    static constexpr std::size_t mostBytes = std::size_t{32} << 20;

    struct Kept {
        std::string mark;
        EventSpan range;
        bool readsEnrichments = false;
        std::shared_ptr<const void> what;
        std::size_t bytes = 0;
    };

    explicit CountCache(std::size_t most = mostBytes) : most_(most) {}

    // Null when there is nothing of that name, or it may not hold any more.
    std::shared_ptr<const void> Find(const std::string& name, IStoreChanges& changes);
    void Keep(const std::string& name, Kept kept);

private:
    using Entry = std::pair<std::string, Kept>;
    using Entries = std::list<Entry>;  // the one asked for last first

    void ForgetLocked(Entries::iterator entry);

    const std::size_t most_;
    std::mutex mutex_;
    Entries entries_;
    std::unordered_map<std::string, Entries::iterator> byName_;
    std::size_t bytes_ = 0;
};

}  // namespace zel
