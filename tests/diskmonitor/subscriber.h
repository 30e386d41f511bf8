#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

#include "common/countedptr.h"
#include "support/fakesettings.h"
#include "support/storefixture.h"
#include "zelstore/diskmonitor/diskspacemonitor.h"

namespace ZEL::test {

using States = std::vector<DiskState>;

// Keeps what it hears, and then does what it is told. Counted, so that a test sees who keeps it.
class Subscriber final : public IMonitorSubscriber {
public:
    static CountedPtr<Subscriber> Make(std::function<void(DiskState)> onEvent = nullptr) {
        return CountedPtr<Subscriber>(new Subscriber(std::move(onEvent)));
    }

    TobResult QueryInterface(const GUID& iid, void** out) override {
        *out = iid == iidTobBase && answers ? this : nullptr;
        if (*out == nullptr)
            return TOBERR_NO_INTERFACE;
        AddRef();
        return TOB_OK;
    }
    std::int64_t AddRef() override { return ++references_; }
    std::int64_t Release() override {
        const std::int64_t left = --references_;
        if (left == 0)
            delete this;
        return left;
    }
    HRESULT OnMonitorEvent(IMonitorEvent* event) override {
        const DiskState state = event->GetState();
        {
            const std::lock_guard hold(mutex_);
            latest = CountedPtr<IMonitorEvent>(event);
            heard_.push_back(state);
        }
        changed_.notify_all();
        if (onEvent)
            onEvent(state);
        return hr::fail;  // not looked at
    }

    States Heard() const {
        const std::lock_guard hold(mutex_);
        return heard_;
    }
    void AwaitCount(std::size_t count) {
        std::unique_lock hold(mutex_);
        changed_.wait(hold, [&] { return heard_.size() >= count; });
    }
    std::int64_t References() const { return references_; }

    std::function<void(DiskState)> onEvent;
    bool answers = true;
    CountedPtr<IMonitorEvent> latest;

private:
    explicit Subscriber(std::function<void(DiskState)> call) : onEvent(std::move(call)) {}
    ~Subscriber() = default;

    std::atomic<std::int64_t> references_{0};
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    States heard_;
};

inline constexpr DiskState toStop = DiskState::stop;
inline constexpr DiskState toResume = DiskState::resume;
inline constexpr std::uint64_t megabyte = 1000000;

// A monitor that looks when it is told to, at a volume that is full at first.
class MonitorTest : public testing::Test {
protected:
    void Look(std::uint64_t bytes) {
        volume.SetBytes(bytes);
        monitor->CheckFreeSpace(L"/");
    }
    HRESULT Subscribe(const CountedPtr<Subscriber>& subscriber) {
        return monitor->Subscribe(subscriber.Get());
    }

    FakeSettings settings;
    FakeFreeSpace volume{0};
    RecordingReports reports;
    CountedPtr<DiskSpaceMonitor> monitor{new DiskSpaceMonitor()};
    const CountedPtr<Subscriber> last = Subscriber::Make();
};

}  // namespace ZEL::test
