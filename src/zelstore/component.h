#pragma once

#include <cstdint>

#include "common/componentapi.h"
#include "common/itobfactory.h"

// The component's two exports, its only doorway. Neither throws; any thread may call them.

// A new factory, with one reference, for one of the component's classes. TOBERR_INVALID_ARG for a
// null `factory` or an unknown identifier; `*factory` then stays as it was.
extern "C" ZEL_COMPONENT_API ZEL::TobResult GetFactory(const ZEL::GUID& objectId,
                                                       ZEL::ITobFactory** factory);

// How many objects of the component live, factories included.
extern "C" ZEL_COMPONENT_API std::uint32_t GetObjectCount();
