#pragma once

#include "agent/following/pastreader.h"
#include "agent/spool.h"

namespace zel {

// What followers need to know of the past, as the spool remembers it. Any thread.
class SpoolPast final : public IFollowPast {
public:
    explicit SpoolPast(Spool& spool) : spool_(spool) {}

    std::string Settled() override { return spool_.Settled(); }
    std::uint64_t PurgedFrom(std::string_view place) override { return spool_.PurgedBehind(place); }
    std::mutex& Purging() override { return purging_; }

private:
    Spool& spool_;
    std::mutex purging_;
};

}  // namespace zel
