#pragma once

#include <cstddef>

namespace zel {

// What the rules of one text may take in memory, roughly, and with it in time: copies of searches
// and written out values can be far more than the text.
class ReadingBudget {
public:
    // False once all is spent.
    bool Take(std::size_t bytes) noexcept {
        const bool isThere = bytes <= left_;
        left_ -= isThere ? bytes : left_;
        return isThere;
    }

private:
    std::size_t left_ = std::size_t{128} << 20U;
};

inline constexpr const char* budgetSpent = "the rules of this text take too much memory";

}  // namespace zel
