#include "agent/web/listbest.h"

#include <utility>

#include "common/textbridge.h"

namespace zel {

namespace {

constexpr std::size_t mostBytes = std::size_t{64} << 20;

std::size_t BytesOf(const ListedEvent& event) {
    return event.key.size() + event.text.size() + event.enrichments.size();
}

}  // namespace

bool BestRows::IsBeyond(std::int64_t time, std::uint64_t sequence) const {
    if (rows_.size() < most_)
        return false;
    const EventPlace& worst = Worst()->first;
    const std::pair asked(time, sequence), kept(worst.time, worst.sequence);
    return newest_ ? asked < kept : asked > kept;
}

bool BestRows::Wants(const EventPlace& place) const {
    return rows_.size() < most_ || (newest_ ? place >= Worst()->first : place <= Worst()->first);
}

void BestRows::Add(const EventPlace& place, const ZEL::QueryRow& row) {
    // Nobody could ask for a key that is not UTF-8.
    if (Wants(place) && wm::IsUtf8(row.key) && rows_.find(place) == rows_.end())
        Keep(place, {std::string(row.key), std::string(row.text), std::string(row.enrichments)});
}

void BestRows::Keep(const EventPlace& place, ListedEvent&& event) {
    const std::size_t bytes = BytesOf(event);
    if (!rows_.try_emplace(place, std::move(event)).second)
        return;
    bytes_ += bytes;
    while (rows_.size() > most_ || (bytes_ > mostBytes && rows_.size() > 1)) {
        const auto worst = Worst();
        isCut_ = isCut_ || rows_.size() <= most_;
        bytes_ -= BytesOf(worst->second);
        most_ = isCut_ ? rows_.size() - 1 : most_;
        rows_.erase(worst);
    }
}

void BestRows::Join(BestRows&& other) {
    for (auto& [place, event] : other.rows_)
        if (Wants(place))
            Keep(place, std::move(event));
    isCut_ = isCut_ || other.isCut_;
}

std::int64_t BestRows::Length() const {
    return rows_.empty() ? 0 : rows_.rbegin()->first.time - rows_.begin()->first.time;
}

}  // namespace zel
