#include "zelstore/component.h"

#include "common/itobbaseimpl.h"
#include "zelstore/diskmonitor/diskspacemonitor.h"
#include "zelstore/diskmonitor/diskspacemonitormanager.h"
#include "zelstore/eventsquery.h"
#include "zelstore/eventstoreproxy.h"

// The component's door. A host knows nothing of its classes but their identifiers; each factory
// makes objects of one class and counts as an object itself. A host that unloads the component
// first waits until none lives.
extern "C" ZEL::TobResult GetFactory(const ZEL::GUID& objectId, ZEL::ITobFactory** factory) {
    using namespace ZEL;
    if (factory == nullptr)
        return TOBERR_INVALID_ARG;
    if (objectId == eventStoreObjectId)
        return GiveFactory<EventStoreProxy>(factory);
    if (objectId == eventsQueryObjectId)
        return GiveFactory<EventsQuery>(factory);
    if (objectId == diskSpaceMonitorManagerObjectId)
        return GiveFactory<DiskSpaceMonitorManager>(factory);
    if (objectId == diskSpaceMonitorObjectId)
        return GiveFactory<DiskSpaceMonitor>(factory);
    return TOBERR_INVALID_ARG;
}

extern "C" std::uint32_t GetObjectCount() {
    return ZEL::LiveObjectCounter().load(std::memory_order_acquire);
}
