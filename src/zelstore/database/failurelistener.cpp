#include "zelstore/database/failurelistener.h"

namespace ZEL {

namespace {

thread_local FailureListener* innermost = nullptr;

}  // namespace

FailureListener::FailureListener() noexcept : outer_(innermost) {
    innermost = this;
}

FailureListener::~FailureListener() {
    innermost = outer_;
}

FailureListener* FailureListener::OfThread() noexcept {
    return innermost;
}

}  // namespace ZEL
