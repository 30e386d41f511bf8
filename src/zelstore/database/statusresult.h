#pragma once

#include <leveldb/status.h>

#include "common/result.h"

namespace ZEL {

// The store's result for a state of the library. A state without a row here is a plain failure. The
// library tells every failed call of the system alike; what it was for want of is FolderEnv's to
// say.
inline HRESULT FromStatus(const leveldb::Status& status) noexcept {
    return status.ok()             ? hr::ok
           : status.IsNotFound()   ? hr::notFound
           : status.IsCorruption() ? hr::corrupt
           : status.IsIOError()    ? hr::deviceError
                                   : hr::fail;
}

}  // namespace ZEL
