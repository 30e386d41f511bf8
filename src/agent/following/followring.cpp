#include "agent/following/followring.h"

#include <algorithm>

#include "agent/following/followplace.h"

namespace zel {

void FollowRing::Put(std::shared_ptr<const AcceptedBatch> batch) {
    if (batch->events.empty())
        return;
    end_ = PlaceBehind(batch->events.back().receiveKey);
    bytes_ += batch->bytes;
    batches_.push_back(std::move(batch));
    while (bytes_ > mostBytes_) {
        bytes_ -= batches_.front()->bytes;
        begin_ = PlaceBehind(batches_.front()->events.back().receiveKey);
        batches_.pop_front();
    }
}

std::vector<std::shared_ptr<const AcceptedBatch>> FollowRing::From(std::string_view place,
                                                                   std::size_t most) const {
    const auto isAhead = [](const std::shared_ptr<const AcceptedBatch>& batch,
                            std::string_view wanted) {
        return batch->events.back().receiveKey < wanted;
    };
    const auto first = std::lower_bound(batches_.begin(), batches_.end(), place, isAhead);
    const auto count =
        std::min<std::size_t>(most, static_cast<std::size_t>(std::distance(first, batches_.end())));
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

}  // namespace zel
