#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "agent/config.h"

namespace zel {

// Settings that may be replaced while the service runs. Any thread. Who needs several values that
// belong together takes Now() once.
template <typename Settings>
class Live {
public:
    using Snapshot = std::shared_ptr<const Settings>;

    explicit Live(Settings settings)
        : now_(std::make_shared<const Settings>(std::move(settings))) {}

    Snapshot Now() const {
        const std::lock_guard hold(mutex_);
        return now_;
    }
    Snapshot operator->() const { return Now(); }
    void Replace(Settings settings) {
        auto next = std::make_shared<const Settings>(std::move(settings));
        const std::lock_guard hold(mutex_);
        now_.swap(next);
    }

private:
    mutable std::mutex mutex_;
    Snapshot now_;
};

using LiveConfig = Live<AgentConfig>;

}  // namespace zel
