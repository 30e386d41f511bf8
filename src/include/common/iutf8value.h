#pragma once

#include <cstddef>

#include "common/itobbase.h"

namespace ZEL {

// The second face of a string value that was made from UTF-8: its text as it came, without a
// conversion. For who keeps, compares or prints UTF-8, which the store and its files are made of.
//
// Asked for by QueryInterface of an IStringValue. A value that was made of wide text has no such
// face, nor need a host's own values have it: who asks must be able to go without (Utf8Of in
// common/valuetext.h does). Threads may share one.
class IUtf8Value : public ITobBase {
public:
    // Well-formed UTF-8 of `*bytes` bytes, which is the text of GetText: it holds no NUL, and one
    // stands behind it. Lives as long as the object.
    virtual const char* GetUtf8(std::size_t* bytes) = 0;

protected:
    ~IUtf8Value() = default;
};

inline constexpr GUID iidUtf8Value = MakeGuid("8E21C7A4-5D0F-4C36-B9E1-47A3F26D0B58");

}  // namespace ZEL
