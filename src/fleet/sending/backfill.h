#pragma once

#include <cstdint>
#include <string>

#include "connection/sessionlistener.h"
#include "fleet/sending/batchmaker.h"
#include "zelstore/ieventstore.h"

namespace zel::fleet {

// Sends events by their own times, those without a row by time of receipt too. They count as
// received when the run began. The state's place stays where it is.
//
// `since`, `until`: times as keys have them, both included; an empty one is none. Waits until the
// fleet has all; false when the delivery has ended, or with words for a store that can't be asked.
bool Backfill(ZEL::IEventStore7& store, const std::string& host, const std::string& since,
              const std::string& until, const BatchLimits& limits, RowDelivery& delivery,
              ISessionListener& listener);

}  // namespace zel::fleet
