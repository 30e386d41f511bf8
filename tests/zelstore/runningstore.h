#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "support/client.h"
#include "support/storefixture.h"
#include "zelstore/eventstoreimpl.h"

namespace ZEL::test {

// A store core of its own on an empty directory, with periods that suit a test.
class RunningStore {
public:
    // Neither the coordinator's look at the live mode nor the flush timer comes by itself.
    static constexpr std::uint32_t never = 3600000;

    explicit RunningStore(StorePeriods periods = {never, never}) : core(periods) {}
    ~RunningStore() {
        EXPECT_EQ(core.Stop(), hr::ok);
        EXPECT_EQ(core.Shutdown(), hr::ok);
    }

    HRESULT Insert(const std::string& key, const std::string& value = "{}", bool silent = false) {
        return core.EnqueueForInsertion(key, value, silent);
    }
    bool OnDisk(const std::string& key) {
        std::string value;
        return Succeeded(GetMasterDatabase()->GetRecord(key, &value)) && !value.empty();
    }
    // Looks again and again until the row is there; the test's own time limit ends a wait in vain.
    void AwaitOnDisk(const std::string& key) {
        while (!OnDisk(key))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::size_t CountEvents() {
        RecordingCallback callback;
        wm::EventObject stop;
        EXPECT_TRUE(stop.Create(false, false));
        const auto document = Str(
            R"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}})");
        EXPECT_EQ(core.Query(document.Get(), &callback, stop.Handle(), nullptr), hr::ok);
        return callback.texts.size();
    }

    TempStore directory;
    EventStoreImpl core;
};

inline std::string EventKey(int i) {
    return "p<begin_time>2026-01-01T00:00:00.000Z<sequence>" + std::to_string(1000000000 + i);
}

}  // namespace ZEL::test
