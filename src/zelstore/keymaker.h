#pragma once

#include <string>
#include <string_view>

#include "common/result.h"
#include "zelstore/ieventstore.h"

namespace ZEL {

// Primary keys. No lock and no state: a key is told by its record alone. All of these throw
// nothing; memory exhaustion gives 0x8007000E.

// The key of an event record given as JSON text, in UTF-8. 0x8000FFFF for text that is not JSON,
// not Unicode or holds a name that is not in the vocabulary; 0x80070057 without begin_time;
// 0x80004005 without target or action.
HRESULT MakeEventKey(std::wstring_view jsonText, std::string* key) noexcept;
HRESULT MakeEventKey(std::string jsonText, std::string* key) noexcept;

// The key of an event given as numbered properties. 0x80070057 when one of the time, the sequence,
// the object type and the action is absent.
HRESULT MakePropertyKey(IEventProperties* event, std::wstring* key) noexcept;

}  // namespace ZEL
