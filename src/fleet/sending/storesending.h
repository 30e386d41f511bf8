#pragma once

#include <memory>
#include <string>

#include "fleet/sending/enrichmentsending.h"
#include "fleet/sending/eventsending.h"
#include "fleet/sending/rowdelivery.h"

namespace zel::fleet {

struct SendingSetup {
    FleetAddress address;
    std::string host;
    std::string directory;  // of the store
    std::string stateFile;
    std::string since;  // where it begins in place of the position; empty: there
    BatchLimits limits;
    DeliveryOptions delivery;
    int rowsOfStep = 500;
};

// One store's way to one fleet: where it stands, what is read and what is sent. For one thread, but
// for Look and End.
class StoreSending {
public:
    // Reads the position, and makes sure that it can be kept. Null with words. All outlive it.
    static std::unique_ptr<StoreSending> Open(const SendingSetup& setup, ZEL::IEventStore7& store,
                                              IFollowPast& past, ISessionListener& listener,
                                              std::string* problem);

    // As the first round found it.
    const SendingState& Before() const noexcept { return before_; }
    // As EventSending::Round.
    bool SendEvents(const std::string& safeUntil) { return events_->Round(safeUntil); }
    bool SendEnrichments() { return enrichments_->Round(); }
    // Whether the last round has met what can't be read.
    bool HasUnread() const noexcept { return events_->HasUnread() || enrichments_->Unread() != 0; }
    RowDelivery& Delivery() noexcept { return *delivery_; }
    RowDelivery::Sight Look() const { return delivery_->Look(); }
    // Ends what is under way.
    void End() {
        events_->End();
        delivery_->Stop();
    }

private:
    explicit StoreSending(const SendingSetup& setup);

    SendingState state_, before_;
    const StateFile file_;
    RefusedRows refused_;
    std::unique_ptr<RowDelivery> delivery_;
    std::unique_ptr<EventSending> events_;
    std::unique_ptr<EnrichmentSending> enrichments_;
};

}  // namespace zel::fleet
