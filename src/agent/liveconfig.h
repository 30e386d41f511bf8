#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "agent/config.h"

namespace zel {

// The configuration that holds now: it may be replaced while the service runs. Any thread. Who
// needs several values that belong together takes Now() once.
class LiveConfig {
public:
    using Snapshot = std::shared_ptr<const AgentConfig>;

    explicit LiveConfig(AgentConfig config)
        : now_(std::make_shared<const AgentConfig>(std::move(config))) {}

    Snapshot Now() const {
        const std::lock_guard hold(mutex_);
        return now_;
    }
    Snapshot operator->() const { return Now(); }
    void Replace(AgentConfig config) {
        auto next = std::make_shared<const AgentConfig>(std::move(config));
        const std::lock_guard hold(mutex_);
        now_.swap(next);
    }

private:
    mutable std::mutex mutex_;
    Snapshot now_;
};

}  // namespace zel
