#include "fleet/sending/storesending.h"

#include "agent/following/followplace.h"

namespace zel::fleet {

namespace {

constexpr std::string_view beginOfTime = "0000-01-01T00:00:00.000Z";

}  // namespace

StoreSending::StoreSending(const SendingSetup& setup)
    : file_(setup.stateFile), refused_(setup.stateFile + ".refused") {
    state_.fleet = NameOf(setup.address);
    state_.host = setup.host;
}

std::unique_ptr<StoreSending> StoreSending::Open(const SendingSetup& setup,
                                                 ZEL::IEventStore7& store, IFollowPast& past,
                                                 ISessionListener& listener, std::string* problem) {
    std::unique_ptr<StoreSending> made(new StoreSending(setup));
    bool isThere = false;
    SendingState& state = made->state_;
    if (!made->file_.Load(&state, &isThere, problem))
        return nullptr;
    if (!setup.since.empty())
        state.place = PlaceAtTime(setup.since);
    else if (state.place.empty())
        state.place = PlaceAtTime(beginOfTime);
    // A place that can't be kept is better known ahead of all work.
    if (!made->file_.Save(state, problem))
        return nullptr;
    made->before_ = state;
    made->delivery_ = std::make_unique<RowDelivery>(setup.address, setup.delivery, state,
                                                    made->file_, made->refused_, listener);
    made->events_ = std::make_unique<EventSending>(
        EventSending::Parts{store, past, *made->delivery_, listener}, setup.host, setup.limits,
        made->before_.place, !isThere, setup.rowsOfStep);
    made->enrichments_ =
        std::make_unique<EnrichmentSending>(setup.directory, setup.host, setup.limits,
                                            made->before_.folders, *made->delivery_, listener);
    return made;
}

}  // namespace zel::fleet
