#pragma once

#include <new>

#include "common/result.h"
#include "common/trace.h"

namespace ZEL {

// Runs a public operation's body and turns what it throws into the two fixed codes: nothing is
// thrown across an interface.
template <typename Body>
HRESULT AtBoundary(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        wm::Trace(wm::message::memoryExhausted, hr::outOfMemory);
        return hr::outOfMemory;
    } catch (const std::exception& error) {
        wm::Trace(wm::message::operationThrew, hr::unexpected, error.what());
        return hr::unexpected;
    } catch (...) {
        wm::Trace(wm::message::operationThrew, hr::unexpected);
        return hr::unexpected;
    }
}

}  // namespace ZEL
