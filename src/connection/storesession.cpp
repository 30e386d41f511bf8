#include "connection/storesession.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>

#include "common/hostservices.h"
#include "connection/resultwords.h"
#include "connection/storereports.h"

// A session: find the directory, load the component, start the store; in the end flush, close, and
// tell what failed.
//
// LevelDB lets one process at a time have a database open, and a reader opens each for a moment
// only. So readers take turns by a lock on the store's directory, which the store itself knows
// nothing of; a writer needs none, since it waits for the one folder that it writes.
//
// What failed is known last: the coordinator may have a batch in hand until Shutdown has returned,
// so the table of errors is read between that and the release of the store.

namespace zel {

namespace {

// What is no fault, but should be known before the store is used.
void TellState(const std::string& directory, StoreNeed need, ISessionListener& listener) {
    constexpr mode_t ofOthers = 0077;
    struct stat info {};
    char mode[8] = "";
    if (::stat(directory.c_str(), &info) == 0 && (info.st_mode & ofOthers) != 0) {
        std::snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(info.st_mode & 07777));
        listener.Say("note: the store " + directory + " is open to others than its owner (mode " +
                     mode + "); chmod 700 closes it");
    }
    if (need == StoreNeed::existing && LookIntoStore(directory) == StoreContent::nothing)
        listener.Say("the store " + directory + " is empty");
}

}  // namespace

// Readers of one store take turns. Whoever waits too long goes on all the same, and is told by the
// store which folders it could not open. -1 when the directory can't be opened. The lock goes with
// the descriptor, so a reader that is killed gives its turn back.
int StoreSession::TakeTurn(const std::string& directory) {
    const int turn = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    constexpr int longestWaitMs = 5000, lookAgainMs = 20;
    for (int waitedMs = 0; turn >= 0 && waitedMs < longestWaitMs && !listener_.Interrupted();
         waitedMs += lookAgainMs) {
        if (::flock(turn, LOCK_EX | LOCK_NB) == 0)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(lookAgainMs));
    }
    return turn;
}

// The turn is held until Close, for all folders that are opened in between.
bool StoreSession::Open(StoreNeed need) {
    std::string directory;
    std::string problem;
    if (!FindStore(need, &directory, &problem)) {
        listener_.Say(problem);
        return false;
    }
    TellState(directory, need, listener_);
    if (need == StoreNeed::existing)
        turn_ = TakeTurn(directory);
    if (Load() && Start(directory))
        return true;
    Close();
    return false;
}

// Losses count from here on: an earlier session's are not this one's.
bool StoreSession::Start(const std::string& directory) {
    lostBefore_ = RecordsLost();
    const ZEL::HRESULT result = store_->Initialize();
    started_ = Succeeded(result);
    if (!started_)
        listener_.Say("the store " + directory +
                      " can't be opened: " + Describe(static_cast<std::int32_t>(result)));
    return started_;
}

bool StoreSession::Load() {
    const ZEL::TobResult loaded = wm::LoadInstalledObject(
        L"ZELStore", ZEL::eventStoreObjectId, ZEL::iidEventStore7, store_.ReceiveVoid());
    if (Failed(loaded))
        listener_.Say("the store's component can't be loaded; -v tells why");
    return Succeeded(loaded);
}

bool StoreSession::Close() {
    const bool isWhole = CloseStore();
    if (turn_ >= 0)
        ::close(std::exchange(turn_, -1));
    return isWhole;
}

// Each step is taken also when the one before it has failed, as the store has to be shut down in
// any case.
bool StoreSession::CloseStore() {
    if (!std::exchange(started_, false)) {
        store_.Reset();
        return true;
    }
    const ZEL::HRESULT stopped = store_->Stop();
    emptied_ = Succeeded(stopped);
    if (!emptied_)
        listener_.Say("the last records can't be written: " +
                      Describe(static_cast<std::int32_t>(stopped)));
    const ZEL::HRESULT closed = store_->Shutdown();
    // Only now has the last batch been written.
    const std::uint32_t failures = TellDatabaseErrors();
    store_.Reset();
    return emptied_ && Succeeded(closed) && failures == 0;
}

std::vector<DatabaseError> StoreSession::TakeDatabaseErrors() {
    std::vector<DatabaseError> errors;
    if (ReadDatabaseErrors(&errors))
        ZEL::IgnoreResult(store_->ClearDatabaseErrors(), "taken already");
    return errors;
}

std::uint32_t StoreSession::TellDatabaseErrors() {
    std::uint32_t total = 0;
    for (const DatabaseError& error : TakeDatabaseErrors()) {
        total += error.count;
        listener_.Say(error.Text());
    }
    if (const std::uint32_t reads = TakeDamagedReads()) {
        listener_.Say(std::to_string(reads) + " read(s) met damaged data; -v tells where");
        total += reads;
    }
    return total;
}

}  // namespace zel
