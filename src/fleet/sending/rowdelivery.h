#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "connection/sessionlistener.h"
#include "fleet/fleetclient.h"
#include "fleet/sending/refusedrows.h"
#include "fleet/sending/rowbatch.h"
#include "fleet/sending/sendingstate.h"

namespace zel::fleet {

struct DeliveryOptions {
    std::uint64_t rowsPerSecond = 0;  // 0: as many as the fleet takes
    // How often one request is sent again before the delivery ends; 0: for ever.
    unsigned tries = 0;
    // Ahead of the second try; each further one waits twice as long, up to a minute.
    std::chrono::milliseconds firstPause{1000};
    // Where a person has to look, the wait for that; none: the delivery ends.
    std::optional<std::chrono::milliseconds> personPause;
    bool packs = true;  // gzip on the way
};

// Brings batches to a fleet, one after the other on a thread of its own, so that the next one can
// be made meanwhile. At least once: a batch whose answer does not come is sent again. What a server
// says decides what is done; rows that are no good are put aside one by one, and the others go on.
// The state moves, and is kept, behind a batch that the fleet has.
class RowDelivery {
public:
    // All outlive this. `state` is this one's alone until Stop has returned.
    RowDelivery(FleetAddress address, const DeliveryOptions& options, SendingState& state,
                const StateFile& file, RefusedRows& refused, ISessionListener& listener);
    ~RowDelivery() { Stop(); }
    RowDelivery(const RowDelivery&) = delete;
    RowDelivery& operator=(const RowDelivery&) = delete;

    // Takes it over; waits while two others are under way. False when the delivery has ended.
    bool Give(RowBatch&& batch);
    // Waits until the fleet has all that was given. False when the delivery has ended before.
    bool Drain();
    // Ends what is under way; no batch is taken any more. Any thread.
    void Stop();

    // A look at one moment. Any thread.
    struct Sight {
        SendingState state;
        std::string failing;    // why it doesn't go on just now; empty: it does
        bool hasEnded = false;  // and will not
    };
    Sight Look() const;

private:
    using Clock = std::chrono::steady_clock;
    // What became of rows.
    enum class Outcome { there, ended };

    void Main();
    void Deliver(RowBatch& batch);
    Outcome SendRows(const RowBatch& batch, std::size_t first, std::size_t last);
    Outcome SendParts(const RowBatch& batch, std::size_t first, std::size_t last);
    Outcome PutAside(const RowBatch& batch, std::size_t row, const FleetFailure& failure);
    bool TryOnce(std::string_view table, std::string_view rows, FleetFailure* failure);
    Outcome Keep(RowBatch& batch);
    // Waits as the failure asks. False when it is over.
    bool Await(const FleetFailure& failure, unsigned* tried);
    bool Pause(std::chrono::milliseconds time);
    void TellFailing(const std::string& why, std::chrono::milliseconds pause);
    void TellGoing();
    void End(const std::string& why);

    const DeliveryOptions options_;
    SendingState& state_;
    const StateFile& file_;
    RefusedRows& refused_;
    ISessionListener& listener_;
    std::atomic<bool> stopping_{false};
    FleetClient client_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<RowBatch> next_;
    bool isBusy_ = false, hasEnded_ = false;
    std::string failing_;

    // Of the thread.
    std::string packed_;
    Clock::time_point notBefore_;
    Clock::time_point failingSince_;
    std::size_t refusedInARow_ = 0;

    std::thread thread_;  // begun when all else is there
};

// Gzip, quickly.
void PackRows(std::string_view rows, std::string* packed);

}  // namespace zel::fleet
