#include "agent/web/countvalues.h"

#include <algorithm>

namespace zel {

// Values come in few spellings, each of which is folded once.
bool ValueCounts::Keep(std::string_view value, std::uint32_t* number) {
    std::string folded(value);
    for (char& c : folded)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (spellings_.size() >= most_ || bytes_ + 3 * value.size() > mostBytes) {
        const auto known = folded_.find(folded);
        if (known != folded_.end())
            *number = known->second;
        return known != folded_.end();
    }
    const auto [place, isNew] =
        folded_.emplace(std::move(folded), static_cast<std::uint32_t>(counted_.size()));
    if (isNew)
        counted_.push_back({std::string(value)});
    bytes_ += (isNew ? 3 : 1) * value.size();
    *number = place->second;
    spellings_.emplace(value, *number);
    return true;
}

void ValueCounts::Add(std::string_view value) {
    std::uint32_t number = 0;
    const auto known = spellings_.find(value);
    if (known != spellings_.end())
        number = known->second;
    else if (!Keep(value, &number)) {
        ++untold_;
        return;
    }
    ++counted_[number].count;
}

std::vector<ValueCounts::Counted> ValueCounts::Most(std::size_t most, std::uint64_t* others) const {
    std::vector<const Counted*> all;
    std::uint64_t rest = untold_;
    for (const Counted& each : counted_) {
        all.push_back(&each);
        rest += each.count;
    }
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(std::min(most, all.size()));
    std::partial_sort(all.begin(), end, all.end(), [](const Counted* a, const Counted* b) {
        return a->count != b->count ? a->count > b->count : a->value < b->value;
    });
    std::vector<Counted> told;
    for (auto each = all.begin(); each != end; ++each) {
        rest -= (*each)->count;
        told.push_back(**each);
    }
    *others = rest;
    return told;
}

}  // namespace zel
