#include "zel/ingest/storefailures.h"

#include <algorithm>

#include "common/result.h"
#include "connection/resultwords.h"
#include "zel/terminal/messages.h"

// The table has one entry for each folder and kind of operation: how often it failed, and the last
// result. It is not told when an entry was added to, so each look compares the table with that of
// the look before. Two failures between two looks are one then, which is enough: what is asked is
// whether there were any.

namespace zel {

namespace {

namespace hr = ZEL::hr;

constexpr std::uint32_t readOperation = 2;
constexpr std::uint32_t writeOperation = 3;

bool Is(const DatabaseError& error, std::initializer_list<ZEL::HRESULT> results) {
    return std::any_of(results.begin(), results.end(), [&](ZEL::HRESULT result) {
        return static_cast<std::int32_t>(result) == error.lastResult;
    });
}

// What another process or this one may give free again. All else stays as it is, however often it
// is tried.
bool MayPass(const DatabaseError& error) {
    return Is(error, {hr::sharingViolation, hr::tooManyOpenFiles, hr::outOfMemory, hr::diskFull});
}

}  // namespace

// The lock is held while the store is asked, so that two looks can't take in the same change twice.
void StoreFailures::Look() {
    const std::lock_guard lock(mutex_);
    std::vector<DatabaseError> errors;
    if (!store_.ReadDatabaseErrors(&errors)) {
        ++obstacles_;
        return;
    }
    std::map<std::string, std::vector<DatabaseError>> present;
    for (DatabaseError& error : errors)
        present[error.folder].push_back(std::move(error));
    for (const auto& [folder, list] : present)
        for (const DatabaseError& error : list)
            TakeIn(error, seen_[folder]);
    seen_ = std::move(present);
}

// `former` are the folder's entries at the last look. Where a folder fails in two ways the table
// may leave the operation of the second open (0). It then counts as whatever makes the reader more
// careful: as a failed write, and when it may pass also as an obstacle.
void StoreFailures::TakeIn(const DatabaseError& error, const std::vector<DatabaseError>& former) {
    const bool isKnown = std::find(former.begin(), former.end(), error) != former.end();
    if (isKnown || IsOfOwnMaking(error))
        return;
    const bool isRead = error.operation == readOperation;
    if (error.operation != writeOperation && MayPass(error)) {
        ++obstacles_;
        Tell(error, "; printing waits for it");
    } else if (isRead) {
        ++unreadable_;
        Tell(error, "; what it holds is not printed");
    } else {
        Tell(error, "");
    }
    writesFailed_ = writesFailed_ || !isRead;
}

// A walk that was ended, or one whose results the reader refused.
bool StoreFailures::IsOfOwnMaking(const DatabaseError& error) const {
    return error.operation == readOperation &&
           (Is(error, {hr::aborted}) || (refusing_ && Is(error, {hr::fail})));
}

// Without the count, which would make each further failure a new one.
void StoreFailures::Tell(const DatabaseError& error, const char* consequence) {
    const std::string kind = error.folder + "/" + error.Operation() + Describe(error.lastResult);
    if (told_.insert(kind).second)
        Say(error.Text() + consequence);
}

std::uint64_t StoreFailures::Obstacles() const {
    const std::lock_guard lock(mutex_);
    return obstacles_;
}

std::uint64_t StoreFailures::Unreadable() const {
    const std::lock_guard lock(mutex_);
    return unreadable_;
}

bool StoreFailures::WritesFailed() const {
    const std::lock_guard lock(mutex_);
    return writesFailed_;
}

// The last look runs while refusals are still the caller's own.
void StoreFailures::SetRefusing(bool refusing) {
    if (!refusing)
        Look();  // what the refusals have caused is passed over by now
    const std::lock_guard lock(mutex_);
    refusing_ = refusing;
}

// What was told on the way need not be told by the session again.
void StoreFailures::Settle() {
    Look();
    const std::lock_guard lock(mutex_);
    if (!writesFailed_)
        ZEL::IgnoreResult(store_->ClearDatabaseErrors(), "what is left is told at the end");
}

}  // namespace zel
