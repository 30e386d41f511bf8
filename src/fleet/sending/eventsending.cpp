#include "fleet/sending/eventsending.h"

#include <utility>

#include "agent/following/followplace.h"
#include "common/valuetext.h"
#include "fleet/fleettable.h"
#include "fleet/fleettime.h"
#include "zelstore/keys/receivekey.h"

// Rows are read a step at a time and never while a request is under way: a step holds up the
// deletion of folders, and a fleet may be silent for hours.

namespace zel::fleet {

namespace {

constexpr int mostTries = 5;

}  // namespace

EventSending::EventSending(const Parts& parts, std::string host, const BatchLimits& limits,
                           std::string place, bool isFirst, int rowsOfStep)
    : parts_(parts),
      host_(std::move(host)),
      reader_(parts.store, parts.past, rowsOfStep),
      maker_(eventsTable, limits, parts.delivery),
      place_(std::move(place)),
      safe_(place_),
      isFirst_(isFirst) {}

bool EventSending::Take(const PastReader::Row& row, const std::string& safeUntil) {
    if (maker_.IsFull())
        return false;
    isFirst_ = false;
    const auto at = ZEL::ParseReceiveKey(row.receiveKey);
    std::string converted;
    const auto key = row.key != nullptr ? wm::Utf8Of(*row.key, converted) : std::nullopt;
    // Many rows have the time of the one ahead of them.
    if (at && at->time != lastTime_) {
        lastTime_ = at->time;
        lastMs_ = MillisecondsOf(lastTime_).value_or(0);
    }
    const FleetReceipt receipt{lastMs_, at ? at->sequence : 0};
    if (key && AppendEventRow(host_, receipt, *key, row.record, &maker_.Rows()))
        maker_.EndRow();
    else {
        ++maker_.Batch().missed;
        parts_.listener.Say("an event that no key can be made for is not sent: received " +
                            PositionOf(PlaceBehind(row.receiveKey)));
    }
    if (safeUntil.empty() || (at && at->time <= safeUntil))
        maker_.Batch().place = safe_ = PlaceBehind(row.receiveKey);
    return true;
}

// What was purged before there was anything to send to is nobody's loss.
void EventSending::TakeGap(std::uint64_t purged, std::string_view place) {
    if (isFirst_)
        return;
    parts_.listener.Say("up to " + std::to_string(purged) +
                        " event(s) were purged before they were sent, received until " +
                        PositionOf(place));
    maker_.Batch().missed += purged;
    maker_.Batch().place = place;
}

void EventSending::TellUnread(const std::string& folder) {
    tries_ = folder.empty() ? 0 : tries_ + 1;
    if (!folder.empty() && folder != unread_)
        parts_.listener.Say("the folder " + folder + " can't be read: sending waits for it");
    if (tries_ > mostTries)
        parts_.listener.Say("the folder " + folder +
                            " can't be read: what is in it is passed over");
    unread_ = folder;
}

// As much as fits into a batch.
bool EventSending::ReadOn(const std::string& safeUntil, bool* isWhole) {
    const std::string before = place_;
    const PastReader::Step step = reader_.Read(
        place_, tries_ > mostTries,
        [this](std::uint64_t purged, std::string_view place) { TakeGap(purged, place); },
        [&](const PastReader::Row& row) { return Take(row, safeUntil); });
    TellUnread(step.unread);
    *isWhole = step.isWhole;
    // Behind all that is there, of which some may still be overtaken, the next round reads it
    // again.
    place_ = step.isWhole && !safeUntil.empty() ? safe_ : step.end;
    return *isWhole || place_ != before;
}

bool EventSending::Round(const std::string& safeUntil) {
    bool isWhole = false;
    while (!isWhole) {
        const bool goesOn = ReadOn(safeUntil, &isWhole);
        if ((maker_.IsFull() || isWhole || !goesOn) && !maker_.Give())
            return false;
        if (!goesOn)
            break;
    }
    return parts_.delivery.Drain();
}

}  // namespace zel::fleet
