#pragma once

#include "common/itobbaseimpl.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

namespace ZEL {

// What subscribers are told. Unchangeable; lives as long as anybody holds a reference.
class DiskSpaceMonitorEvent final : public TobObjectOf<IMonitorEvent, iidMonitorEvent> {
public:
    explicit DiskSpaceMonitorEvent(DiskState state) noexcept : state_(state) {}

    DiskState GetState() override { return state_; }

private:
    const DiskState state_;
};

}  // namespace ZEL
