#pragma once

#include <new>

#include "common/result.h"
#include "common/trace.h"

namespace ZEL {

// Runs a public operation's body and turns what it throws into the two fixed codes: nothing is
// thrown across an interface. What was thrown is traced with its text, since the code alone does
// not tell it. Everything that the body took must be held by objects that free it as the stack
// unwinds, and what it changed must be whole at each point where it may throw: nothing is undone
// here.
//
// The object model's operations, which answer with TobResult, and services with codes of their own
// have guards of their own.
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
