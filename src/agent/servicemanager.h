#pragma once

#include <cstdint>
#include <string>

// The service manager, which is told by datagrams at $NOTIFY_SOCKET how the service is. Without one
// nothing happens.
namespace zel {

// Such as "READY=1".
void NotifyManager(const std::string& text);
// How often it wants to hear WATCHDOG=1, in milliseconds; 0: never.
std::uint64_t WatchdogPeriodMs();

}  // namespace zel
