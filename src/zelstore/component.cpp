#include "zelstore/component.h"

#include <new>

#include "common/itobbaseimpl.h"
#include "zelstore/diskmonitor/diskspacemonitor.h"
#include "zelstore/diskmonitor/diskspacemonitormanager.h"
#include "zelstore/eventsquery.h"
#include "zelstore/eventstoreproxy.h"

namespace ZEL {

namespace {

template <typename T>
TobResult GiveFactory(ITobFactory** factory) {
    auto* const made = new (std::nothrow) CTobFactoryImpl<T>();
    if (made == nullptr)
        return TOBERR_OUT_OF_MEMORY;
    made->AddRef();
    *factory = made;
    return TOB_OK;
}

}  // namespace
}  // namespace ZEL

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
