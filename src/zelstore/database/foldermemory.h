#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "common/filesystem.h"
#include "common/lock.h"
#include "zelstore/database/folderfacts.h"

namespace ZEL {

// Remembers the facts of one folder for as long as nothing in it has changed, so that a walk that
// would find nothing there need not open it. Shared by the folder's entry in the catalog and the
// open database, which tells what happens to it. For any thread.
class FolderMemory {
public:
    explicit FolderMemory(std::wstring folder) : folder_(std::move(folder)) {}

    // What is known of the closed folder; null while it is open or when nothing is known. Files
    // that have changed make it forget.
    std::shared_ptr<const FolderFacts> Recall();

    // Ahead of an opening, and when that has failed. Called under the lock of the folder's gate, as
    // the two of a closing.
    void BeforeOpen();
    // Once the library holds its lock: another process may have come and gone between the two.
    void AfterOpen();
    void Forget();
    // Before each write.
    void NoteWrite() noexcept { isWritten_.store(true, std::memory_order_relaxed); }
    // Whether a whole walk of the open database is worth learning from.
    bool WantsFacts();
    // From a walk over all rows of a snapshot.
    void Learn(std::shared_ptr<const FolderFacts> facts);
    void BeforeClose() noexcept;
    void AfterClose() noexcept;

private:
    std::string ReadCurrent() const;
    bool IsAsItWasLocked() REQUIRES(lock_);
    bool HasItsTablesLocked() REQUIRES(lock_);

    const std::wstring folder_;
    std::atomic<bool> isWritten_{false};  // since it was opened
    wm::Lock lock_;
    bool isOpen_ GUARDED_BY(lock_) = false;
    std::shared_ptr<const FolderFacts> facts_ GUARDED_BY(lock_);
    std::vector<wm::FileState> files_ GUARDED_BY(lock_);  // when it was closed
    std::string current_ GUARDED_BY(lock_);               // CURRENT, ahead of the closing
};

}  // namespace ZEL
