#pragma once

#include <mutex>
#include <string>

#include "agent/following/pastreader.h"

namespace zel::fleet {

// The past of a store that nobody keeps books of: all that is there counts as settled, and what was
// purged is not known.
class StorePast final : public IFollowPast {
public:
    std::string Settled() override;
    std::uint64_t PurgedFrom(std::string_view) override { return 0; }
    std::mutex& Purging() override { return purging_; }

private:
    std::mutex purging_;
};

}  // namespace zel::fleet
