#include "connection/storesession.h"

#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <utility>

#include "common/hostservices.h"
#include "connection/agentrequest.h"
#include "connection/fleetuse.h"
#include "connection/remotestore.h"
#include "connection/resultwords.h"
#include "connection/storereports.h"

// A session: find the directory, load the component, start the store; in the end flush, close, and
// tell what failed.
//
// Where an agent owns the store, the session is one with the agent (remotestore.h), and no
// directory is looked at. A fleet (fleetuse.h) is reached likewise.
//
// LevelDB lets one process at a time have a database open. A session that only asks opens none: it
// reads each folder as it stands, so that any number of them work beside one that writes.
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
    if (!MayBeMade(need) && LookIntoStore(directory) == StoreContent::nothing)
        listener.Say("the store " + directory + " is empty");
}

}  // namespace

// Whether the agent is there and lets this user do it is asked first: a question that is to be
// typed or read, or enrichments that are to be made, should not be in vain.
bool StoreSession::OpenAtAgent(StoreNeed need) {
    std::string answer, problem;
    const bool reads = need == StoreNeed::reading;
    if (MayBeMade(need))
        problem = "the agent at " + AgentSocket() +
                  " takes events by its own ways; to write into a directory, name it with --store";
    else if (Succeeded(CallAgent(reads ? "GET" : "POST",
                                 reads ? "/v1/folders?brief=1" : "/v1/enrichments", "", &answer,
                                 &problem)) &&
             Load()) {
        lostBefore_ = RecordsLost();
        store_ = MakeRemoteStore(AgentSocket(), listener_, std::move(store_));
        return started_ = true;
    }
    if (!problem.empty())
        listener_.Say(problem);
    return false;
}

bool StoreSession::OpenFleet(StoreNeed need) {
    if (need != StoreNeed::reading) {
        listener_.Say("the fleet at " + FleetPlace() +
                      " is only asked; events come there by `zel fleet send`");
        return false;
    }
    if (!Load())
        return false;
    lostBefore_ = RecordsLost();
    store_ = FleetMakerInUse()(listener_, std::move(store_));
    return started_ = static_cast<bool>(store_);
}

bool StoreSession::Open(StoreNeed need) {
    if (IsFleetUsed())
        return OpenFleet(need);
    if (!AgentSocket().empty())
        return OpenAtAgent(need);
    std::string directory;
    std::string problem;
    if (!FindStore(need, &directory, &problem)) {
        listener_.Say(problem);
        return false;
    }
    TellState(directory, need, listener_);
    if (Load() && Start(directory, need))
        return true;
    Close();
    return false;
}

// Losses count from here on: an earlier session's are not this one's.
bool StoreSession::Start(const std::string& directory, StoreNeed need) {
    lostBefore_ = RecordsLost();
    const ZEL::HRESULT result = need == StoreNeed::reading ? StartReading() : store_->Initialize();
    started_ = Succeeded(result);
    if (!started_)
        listener_.Say("the store " + directory +
                      " can't be opened: " + Describe(static_cast<std::int32_t>(result)));
    return started_;
}

ZEL::HRESULT StoreSession::StartReading() {
    ZEL::CountedPtr<ZEL::IReadOnlyStore> reader;
    const ZEL::TobResult found =
        store_->QueryInterface(ZEL::iidReadOnlyStore, reader.ReceiveVoid());
    return Failed(found) ? ZEL::hr::notImplemented : reader->InitializeForReading();
}

bool StoreSession::Load() {
    const ZEL::TobResult loaded = wm::LoadInstalledObject(
        L"ZELStore", ZEL::eventStoreObjectId, ZEL::iidEventStore7, store_.ReceiveVoid());
    if (Failed(loaded))
        listener_.Say("the store's component can't be loaded; -v tells why");
    return Succeeded(loaded);
}

// Each step is taken also when the one before it has failed, as the store has to be shut down in
// any case.
bool StoreSession::Close() {
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

// A read that was broken off, since somebody had enough of it, stands in the table as well.
std::uint32_t StoreSession::TellDatabaseErrors() {
    std::uint32_t total = 0;
    for (const DatabaseError& error : TakeDatabaseErrors()) {
        if (error.lastResult == static_cast<std::int32_t>(ZEL::hr::aborted))
            continue;
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
