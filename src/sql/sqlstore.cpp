#include "sql/sqlstore.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <utility>

#include "common/neverdestroyed.h"
#include "connection/agentrequest.h"
#include "connection/fleetuse.h"
#include "connection/storefolders.h"

// Statements come and go, the store stays: once it is open it is never closed, because the catalog
// of folders is read once in a process, and tables that are made later would find nothing. It is
// open for reading, so there is nothing that would have to be written at the end.

namespace zel {

namespace {

struct OpenStore {
    wm::Lock lock{wm::LockRank::monitorDelivery};  // the store is opened under it
    std::shared_ptr<SqlStore> store GUARDED_BY(lock);
};

// One directory by one name, whatever it was called.
std::string PlainPath(const std::string& directory) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(directory, error);
    return error ? directory : path.string();
}

std::shared_ptr<SqlStore> Refused(std::string* problem, std::string why) {
    *problem = std::move(why);
    return nullptr;
}

// Keeps what is said while a store is opened, of which the last is why it can't be.
class Reason final : public ISessionListener {
public:
    explicit Reason(ISessionListener& listener) : listener_(listener) {}
    void Say(const std::string& text) override {
        if (isOpen_) {
            listener_.Say(text);
            return;
        }
        const wm::Hold hold(lock_);
        said_.push_back(text);
    }
    bool Interrupted() noexcept override { return listener_.Interrupted(); }

    // All that was said so far, the last of it at the end; told by the caller.
    std::vector<std::string> Take() {
        const wm::Hold hold(lock_);
        return std::exchange(said_, {});
    }
    void SayOn() noexcept { isOpen_ = true; }

private:
    ISessionListener& listener_;
    std::atomic<bool> isOpen_{false};
    wm::Lock lock_;
    std::vector<std::string> said_ GUARDED_BY(lock_);
};

}  // namespace

std::shared_ptr<SqlStore> SqlStore::Open(const std::string& directory, ISessionListener& listener,
                                         std::string* problem) {
    static wm::NeverDestroyed<OpenStore> one;
    OpenStore& open = *one;
    const std::string path = IsFleetUsed() ? FleetPlace() : PlainPath(directory);
    const wm::Hold hold(open.lock);
    if (open.store && open.store->Directory() == path)
        return open.store;
    if (open.store)
        return Refused(problem, "a process has one store, and that of " + open.store->Directory() +
                                    " is open");
    if (!IsFleetUsed() && !NamePath("ZELDataStore", path, problem))
        return nullptr;
    static wm::NeverDestroyed<Reason> reason(listener);
    auto store = std::make_shared<SqlStore>(path, *reason);
    const bool isOpen = store->session_.Open(StoreNeed::reading);
    const std::vector<std::string> said = (*reason).Take();
    if (!isOpen)
        return Refused(problem, said.empty() ? "the store can't be opened" : said.back());
    (*reason).SayOn();
    for (const std::string& text : said)
        listener.Say(text);
    open.store = std::move(store);
    return open.store;
}

// Looked at behind the opening: a folder that came in between makes the answer no, as it may have
// been seen. An agent sees those that come later too.
bool SqlStore::IsOneFolder() {
    const wm::Hold hold(lock_);
    if (!AgentSocket().empty())
        return false;
    if (!isOneFolder_) {
        const std::vector<StoreFolder> folders = ListStore(directory_).folders;
        isOneFolder_ = std::count_if(folders.begin(), folders.end(), [](const auto& folder) {
                           return std::string_view(folder.Kind()) != "silent";
                       }) <= 1;
    }
    return *isOneFolder_;
}

// Walks run side by side, and the store tells the failures of all together: while one is being
// stopped, failures to read are left to the end of that, and go with it.
void SqlStore::NoteFailures() noexcept {
    const wm::Hold hold(lock_);
    if (stops_ == 0)
        TakeFailures(true);
}

void SqlStore::BeginStop() noexcept {
    const wm::Hold hold(lock_);
    if (stops_++ == 0)
        TakeFailures(true);
}

void SqlStore::EndStop() noexcept {
    const wm::Hold hold(lock_);
    --stops_;
    TakeFailures(false);
}

void SqlStore::TakeFailures(bool keepsReads) {
    constexpr std::uint32_t read = 2;
    try {
        damagedReads_ += TakeDamagedReads();
        for (const DatabaseError& failure : session_.TakeDatabaseErrors())
            if (keepsReads || failure.operation != read)
                Keep(failure);
    } catch (const std::exception&) {
        return;  // without memory; the store still has them
    }
}

void SqlStore::Keep(const DatabaseError& failure) {
    const auto same =
        std::find_if(failures_.begin(), failures_.end(), [&](const DatabaseError& kept) {
            return kept.folder == failure.folder && kept.operation == failure.operation;
        });
    if (same == failures_.end()) {
        failures_.push_back(failure);
        return;
    }
    same->count += failure.count;
    same->lastResult = failure.lastResult;
}

std::vector<DatabaseError> SqlStore::Failures() const {
    const wm::Hold hold(lock_);
    return failures_;
}

std::uint32_t SqlStore::DamagedReads() const {
    const wm::Hold hold(lock_);
    return damagedReads_;
}

}  // namespace zel
