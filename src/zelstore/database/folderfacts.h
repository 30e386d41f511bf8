#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zelstore/keys/keyfield.h"

namespace ZEL {

// What a walk over all primary rows of a database has learnt: where they begin and end, and a small
// filter of their hashes and identifiers. It says that rows can't be there, and never that they
// are. Immutable, for any thread.
//
// All that live share 64 MiB, and a filter takes at most a byte for each row.
class FolderFacts {
public:
    static constexpr std::size_t mostBytesOfAll = std::size_t{64} << 20;

    ~FolderFacts();
    FolderFacts(const FolderFacts&) = delete;
    FolderFacts& operator=(const FolderFacts&) = delete;

    // Whether a walk from `startKey` on may meet a primary row that is not past `endTime`; an empty
    // one means no end.
    bool MayHoldRows(std::string_view startKey, std::string_view endTime) const noexcept;
    // Whether the filter knows of the field; values of all others may always be there.
    static bool IsRemembered(KeyField field) noexcept;
    // Whether a row may have the value, without case, in a field that is remembered.
    bool MayHold(KeyField field, std::string_view value) const;

private:
    friend class FactsCollector;
    FolderFacts() = default;

    bool hasRows_ = false;
    std::string firstKey_, lastKey_;  // what they begin with
    std::string firstTime_;           // as a sink reads it; empty when the row has none
    std::string filter_;              // empty when none could be kept
    std::size_t bytes_ = 0;           // counted among all
};

// Gathers the facts during one walk. For the walk's thread.
class FactsCollector {
public:
    // Each primary row's key, in their order.
    void Add(std::string_view key);
    // Null when there is no room for more facts.
    std::shared_ptr<const FolderFacts> Finish();

private:
    // Numbers that stand for values, each once.
    class Marks {
    public:
        static constexpr std::size_t most = std::size_t{1} << 18;  // 4 MiB while they are gathered
        void Insert(std::uint64_t mark);
        // Some may be missing then.
        bool IsFull() const noexcept { return count_ == most; }
        std::size_t Count() const noexcept { return count_; }
        std::vector<std::uint64_t> All() const;

    private:
        void Grow();
        std::vector<std::uint64_t> table_;  // its size is a power of two; 0 is a free place
        std::size_t count_ = 0;
    };

    void AddPiece(std::string_view piece);
    std::string MakeFilter() const;

    std::size_t rows_ = 0;
    std::string firstKey_, lastKey_, firstTime_;
    std::array<std::string, 4> lastValues_;  // of each remembered field
    Marks marks_;
};

}  // namespace ZEL
