#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zel {

// Finds, among the records of one run, those whose key an earlier one had: of records with one key
// a database keeps the last. What stood in the store before the run is not looked at.
//
// Remembers hashes, 16 bytes a key, and no more than 64 MiB of them: when the bound is reached the
// older half is forgotten. So every repeat within the last `keysKept` keys is found, and Complete
// tells whether those were all. For one thread. It is a help for people and no part of what the
// store promises: two keys with one hash would be told as a repeat, which is too rare to matter.
class RepeatedKeys {
public:
    static constexpr std::size_t keysKept = 1500000;

    // With `other` the earlier record is overwritten, unless it went into another folder, and
    // people have to know of it.
    enum class Repeat {
        none,  // as far as is remembered
        same,  // the same record again, so that nothing is lost
        other  // another record had the key
    };
    explicit RepeatedKeys(std::size_t kept = keysKept) : kept_(kept) {}

    // Takes the record in. Throws std::bad_alloc, and then has not.
    Repeat Add(std::string_view key, std::string_view record);
    // False once a key has been forgotten. While it is true the counts that were made are exact,
    // else they are lower bounds.
    bool Complete() const noexcept { return complete_; }

private:
    struct Entry {
        std::uint64_t key = 0;  // a hash; 0 for a free place
        std::uint64_t record = 0;
    };
    // The place of a key, or the free one where it belongs. The table has one.
    static Entry& PlaceOf(std::vector<Entry>& table, std::uint64_t key) noexcept;
    void MakeRoom();

    const std::size_t kept_;
    std::vector<Entry> recent_, older_;  // of a power of two, at most three quarters in use
    std::size_t recentCount_ = 0;
    bool complete_ = true;
};

}  // namespace zel
