#pragma once

#include <string_view>

#include "common/itobbase.h"
#include "common/wmapi.h"

namespace ZEL {

// An unchangeable wide text (UTF-32 on Linux, UTF-16 on Windows), the form in which strings cross
// the public boundary. Threads may share one.
//
// What crosses is checked where it enters: the store keeps UTF-8, so a text that can't be converted
// is refused there with an error rather than stored in part. A value that was made from UTF-8 gives
// that too, through its face IUtf8Value.
class IStringValue : public ITobBase {
public:
    // Number of characters. `reserved` is 0. Without the terminating zero. On Windows a character
    // beyond U+FFFF counts 2.
    virtual std::size_t GetLength(int reserved) = 0;
    // Zero-terminated; lives as long as the object.
    virtual const wchar_t* GetText() = 0;

protected:
    ~IStringValue() = default;
};

inline constexpr GUID iidStringValue = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B11");

}  // namespace ZEL

namespace wm {

// A new string value with one reference, or null when memory runs out or `text` is null. The text
// is copied. Nothing checks that it is well-formed.
WMLIB_API ZEL::IStringValue* CreateStringValue(const wchar_t* text) noexcept;
// The same for a text with a known length; it ends at its first NUL, like a zero-terminated one.
WMLIB_API ZEL::IStringValue* CreateStringValue(std::wstring_view text) noexcept;
// The same from UTF-8, which is converted only if the wide text is asked for. False when `utf8` is
// malformed anywhere; true with a null `*out` when memory runs out.
WMLIB_API bool CreateStringValue(std::string_view utf8, ZEL::IStringValue** out) noexcept;

}  // namespace wm
