#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel {

// Counts the values of a column, without regard to the case of ASCII letters, as conditions compare
// them. How many there are is for strangers to say, so only so many are told apart; what comes
// beyond counts as others. For one thread.
class ValueCounts {
public:
    static constexpr std::size_t mostValues = 100000;
    static constexpr std::size_t mostBytes = std::size_t{24} << 20;

    explicit ValueCounts(std::size_t most = mostValues) : most_(most) {}

    void Add(std::string_view value);

    struct Counted {
        std::string value;  // as it was written first
        std::uint64_t count = 0;
    };
    // The most frequent ones, then by their texts; `*others`: events with any other value.
    std::vector<Counted> Most(std::size_t most, std::uint64_t* others) const;

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    using Numbers = std::unordered_map<std::string, std::uint32_t, Hash, std::equal_to<>>;

    bool Keep(std::string_view value, std::uint32_t* number);

    const std::size_t most_;
    Numbers spellings_, folded_;  // places in `counted_`
    std::vector<Counted> counted_;
    std::size_t bytes_ = 0;
    std::uint64_t untold_ = 0;
};

}  // namespace zel
