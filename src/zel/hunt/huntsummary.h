#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hunt/rule.h"
#include "zel/results/resultform.h"

namespace zel {

// Hits counted by rule and computer. Bounded: what would be a pair too many is counted as one of no
// computer. For one thread.
class HuntSummary {
public:
    static constexpr std::size_t mostRows = 100000;

    void Add(std::size_t rule, std::string_view computer, std::string_view time);
    // All rows as text: the most severe rules first, then those with most hits.
    std::string Print(const std::vector<Rule>& rules, FormChoice choice) const;

private:
    struct Row {
        std::uint64_t hits = 0;
        std::string first, last;
    };
    std::map<std::pair<std::size_t, std::string>, Row, std::less<>> rows_;
};

}  // namespace zel
