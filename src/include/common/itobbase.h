#pragma once

#include "common/guid.h"
#include "common/result.h"

namespace ZEL {

// Root of every interface of the object model: reference counting and the way from one interface
// of an object to another. The order of operations is the binary contract. All operations may be
// called from any thread. A caller owns one reference for each pointer that it was given.
//
// Operations of an interface answer with HRESULT or TobResult and throw nothing. Outputs are given
// through pointers to pointers, null on failure unless the operation says something else, with one
// reference that is the receiver's to release. Arguments are lent for the call: who keeps one adds
// a reference.
//
// Destructors are protected: an object ends with its last reference alone.
class ITobBase {
public:
    // Gives the object's face for `iid` with a new reference. The all-zero identifier gives the
    // first interface. Otherwise TOBERR_NO_INTERFACE and a null `*out`; a null `out` gives
    // TOBERR_INVALID_ARG.
    virtual TobResult QueryInterface(const GUID& iid, void** out) = 0;

    // Both return the new count. The object is gone when Release returns 0.
    virtual std::int64_t AddRef() = 0;
    virtual std::int64_t Release() = 0;

protected:
    ~ITobBase() = default;
};

inline constexpr GUID iidTobBase{};

}  // namespace ZEL
