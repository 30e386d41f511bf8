#pragma once

#include <string>

#include "zelstore/database/izeldbimpl.h"

namespace ZEL {

// Hears of each failure that this thread adds to the table of errors, while it lives: what one
// query met can be told from what others meet at the same time. Objects of one thread end in the
// reverse order of their making; the innermost hears. For one thread.
class FailureListener {
public:
    FailureListener() noexcept;
    FailureListener(const FailureListener&) = delete;
    FailureListener& operator=(const FailureListener&) = delete;

    // Null when nobody listens.
    static FailureListener* OfThread() noexcept;

    // `path` is the database's. May throw: then it is not told.
    virtual void OnFailure(const std::wstring& path, DatabaseErrorKind kind, HRESULT result) = 0;

protected:
    ~FailureListener();

private:
    FailureListener* const outer_;
};

}  // namespace ZEL
