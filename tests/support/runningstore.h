#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "support/client.h"
#include "support/recordingsink.h"
#include "support/storefixture.h"
#include "zelstore/core/eventstoreimpl.h"
#include "zelstore/database/masterdatabase.h"

namespace ZEL::test {

inline std::string EventKey(int i) {
    return "p<begin_time>2026-01-01T00:00:00.000Z<sequence>" + std::to_string(1000000000 + i);
}

// A store core of its own on an empty directory, with periods that suit a test.
class RunningStore {
public:
    // Neither the coordinator's look at the live mode nor the flush timer comes by itself.
    static constexpr std::uint32_t never = 3600000;

    explicit RunningStore(StorePeriods periods = {never, never}) : core(periods) {}
    ~RunningStore() { End(); }

    void Start() { ASSERT_EQ(core.Initialize(), hr::ok); }
    void End() {
        EXPECT_EQ(core.Stop(), hr::ok);
        EXPECT_EQ(core.Shutdown(), hr::ok);
    }

    // Adds records until one is refused, and returns how many were taken.
    int Fill(RecordKind kind = RecordKind::event) {
        int taken = 0;
        while (Succeeded(Insert(EventKey(taken), "{}", kind)))
            ++taken;
        return taken;
    }
    HRESULT Insert(const std::string& key, const std::string& value = "{}",
                   RecordKind kind = RecordKind::event) {
        return core.EnqueueForInsertion(key, value, kind);
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
    // Ends the store, reads the directory anew and counts the rows.
    std::size_t StopAndCount() {
        End();
        ZelMasterDatabase database;
        EXPECT_EQ(database.LoadExistingDatabases(), hr::ok);
        RecordingSink sink;
        wm::EventObject stop;
        EXPECT_TRUE(stop.Create(wm::EventReset::automatic));
        EXPECT_EQ(database.Scan("p", &sink, stop.Handle(), nullptr), hr::ok);
        return sink.keys.size();
    }

    TempStore directory;
    EventStoreImpl core;
};

}  // namespace ZEL::test
