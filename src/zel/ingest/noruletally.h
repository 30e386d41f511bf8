#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "records/recordsource.h"

namespace zel {

// Counts events that no rule makes a record of, by their source and number. For one thread. Memory
// is bounded: past a thousand kinds the others are counted as one.
class NoRuleTally {
public:
    void Add(const SourceItem& item);
    std::uint64_t Count() const noexcept { return count_; }
    // The kinds, the commonest first: all of them, or a few in one line.
    void Tell(bool tellsAll) const;

private:
    // Collectors write the names of channels in their own ways.
    struct Less {
        bool operator()(const std::string& a, const std::string& b) const noexcept;
    };

    std::uint64_t count_ = 0;
    std::map<std::string, std::uint64_t, Less> kinds_;
};

}  // namespace zel
