#pragma once

namespace ZEL {

// Keys and values of the host's settings service that the store core uses. The length of the event
// queue is read by each start; whether the last purge met its limit is written when that changes.
// A length of 0, or none, leaves the queue's default. The same holds for the size of the blocks of
// new tables, in bytes.
inline constexpr const wchar_t* settingsKeyStore = L"ZEL\\Settings\\FDR";
inline constexpr const wchar_t* settingsQueueLength = L"MAX_INCOMING_QUEUE_LENGTH";
inline constexpr const wchar_t* settingsBlockSize = L"BLOCK_SIZE";
inline constexpr const wchar_t* settingsKeyState = L"ZEL\\Opstate\\EMAQ";
inline constexpr const wchar_t* settingsLimitHonored = L"MaxDBSizeHonored";

}  // namespace ZEL
