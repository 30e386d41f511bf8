#pragma once

#include "common/result.h"

namespace wmjobmgr {

// Runs the body of an operation. Nothing is thrown across an interface; what is thrown here is
// want of memory.
//
// Objects that the body holds are freed on the way out; outputs that it has not set stay as they
// were.
template <typename Body>
ZEL::HRESULT Guarded(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return ZEL::hr::outOfMemory;
    }
}

}  // namespace wmjobmgr
