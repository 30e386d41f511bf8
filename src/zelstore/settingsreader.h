#pragma once

#include <cstdint>

#include "common/result.h"

namespace ZEL {

// Keys and values of the host's settings service that the store core uses.
inline constexpr const wchar_t* settingsKeyStore = L"ZEL\\Settings\\FDR";
inline constexpr const wchar_t* settingsQueueLength = L"MAX_INCOMING_QUEUE_LENGTH";
inline constexpr const wchar_t* settingsKeyState = L"ZEL\\Opstate\\EMAQ";
inline constexpr const wchar_t* settingsLimitHonored = L"MaxDBSizeHonored";

// Reads one 32-bit value. On failure `*value` keeps what it had, so that a caller passes its
// default in. Failures are traced.
HRESULT ReadSetting(const wchar_t* keyPath, const wchar_t* name, std::uint32_t* value);

// Writes one 32-bit value and makes it last.
HRESULT WriteSetting(const wchar_t* keyPath, const wchar_t* name, std::uint32_t value);

}  // namespace ZEL
