#pragma once

#include <cstdint>
#include <string>

// The service manager, which is told by datagrams at $NOTIFY_SOCKET how the service is, and may
// hand over a socket that it listens at itself. Without one nothing happens.
namespace zel {

// Such as "READY=1".
void NotifyManager(const std::string& text);
// How often it wants to hear WATCHDOG=1, in milliseconds; 0: never.
std::uint64_t WatchdogPeriodMs();
// The listening Unix socket that the manager has handed over, once, and its path; it belongs to the
// caller. -1 without one. False, with a message, when something else was handed over.
bool TakeSocket(int* descriptor, std::string* path, std::string* problem);

}  // namespace zel
