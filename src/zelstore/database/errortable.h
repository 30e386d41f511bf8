#pragma once

#include <string>

#include "common/lock.h"
#include "zelstore/database/izeldbimpl.h"

namespace ZEL {

// Counts, for each database, which kinds of operation failed. May be used by any thread, under any
// other lock of the store. The entries stay until they are cleared, also those of databases that
// have gone: what was lost there is still to be told.
class ErrorTable {
public:
    // An empty path records nothing. The entry of a kind that first fails after another one keeps
    // operation 0. Throws without memory.
    void Record(const std::wstring& path, DatabaseErrorKind kind, HRESULT result);
    // Replaces what `*out` holds.
    void CopyTo(DatabaseErrorTable* out) const;
    void Clear();

private:
    mutable wm::Lock lock_{wm::LockRank::errors};
    DatabaseErrorTable records_ GUARDED_BY(lock_);
};

}  // namespace ZEL
