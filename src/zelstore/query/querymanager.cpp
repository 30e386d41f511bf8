#include "zelstore/query/querymanager.h"

#include <atomic>
#include <utility>

#include "common/neverdestroyed.h"
#include "common/trace.h"

// Queries with threads of their own, from their start to the end of their threads.
//
// A query is entered before its thread runs and stays, also when it has ended, until somebody
// cancels it or the store is shut down. Whoever ends it waits for the thread with no lock held: its
// callback may be about to call here. Where nobody can wait, since the call comes from the query's
// own callback or would close a circle of such waits, the query is handed on to the leaving ones,
// which the shut-down waits for.

namespace ZEL {

QueryModule& Queries() noexcept {
    // What a host has not ended at the process's end is not waited for.
    static wm::NeverDestroyed<QueryModule> module;
    return *module;
}

QueryId NewQueryId() noexcept {
    static std::atomic<std::uint64_t> counter{0};
    const std::uint64_t number = counter.fetch_add(1, std::memory_order_relaxed) + 1;
    QueryId id;
    id.Data1 = static_cast<std::uint32_t>(number);
    id.Data2 = static_cast<std::uint16_t>(number >> 32);
    id.Data3 = static_cast<std::uint16_t>(number >> 48);
    return id;
}

void LeavingQueries::Add(std::shared_ptr<BackgroundQuery> query) {
    const wm::Hold hold(lock_);
    std::erase_if(queries_, [](const auto& left) { return !left->IsRunning(); });
    queries_.push_back(std::move(query));
}

void LeavingQueries::CancelAll() {
    const wm::Hold hold(lock_);
    for (const auto& query : queries_)
        query->Cancel();
}

void LeavingQueries::WaitAll() {
    std::vector<std::shared_ptr<BackgroundQuery>> queries;
    {
        const wm::Hold hold(lock_);
        queries = queries_;
    }
    for (const auto& query : queries)
        query->Stop();
    const wm::Hold hold(lock_);
    std::erase_if(queries_, [](const auto& left) { return !left->IsRunning(); });
}

void QueryManager::Await(const QueryPtr& query) {
    query->Stop();
    if (query->IsRunning())
        Queries().leaving.Add(query);
}

HRESULT QueryManager::StartQuery(CountedPtr<IEventStore> store, IStringValue* document,
                                 IQueryCallback* callback,
                                 const std::function<void(const QueryId&)>& announce) {
    const wm::Hold hold(lock_);
    if (!accepting_)
        return hr::aborted;
    const auto query = std::make_shared<BackgroundQuery>();
    HRESULT result = query->Init(std::move(store));
    if (Failed(result))
        return result;
    const QueryId id = NewQueryId();
    // Entered ahead of its start, so that no running thread is ever without an entry.
    queries_[id] = query;
    announce(id);
    result = query->Start(document, callback);
    if (Failed(result))
        queries_.erase(id);
    return result;
}

QueryManager::QueryPtr QueryManager::Find(const QueryId& id) const {
    const wm::Hold hold(lock_);
    const auto found = queries_.find(id);
    if (found != queries_.end())
        return found->second;
    wm::Trace(wm::message::noSuchQuery);
    return nullptr;
}

HRESULT QueryManager::CancelQuery(const QueryId& id) {
    const QueryPtr query = Find(id);
    if (!query)
        return hr::nothingToDo;
    query->Cancel();
    Await(query);
    const wm::Hold hold(lock_);
    return queries_.erase(id) != 0 ? hr::ok : hr::nothingToDo;
}

HRESULT QueryManager::RequestStop(const QueryId& id) {
    const QueryPtr query = Find(id);
    if (!query)
        return hr::nothingToDo;
    query->RequestStop();
    return hr::ok;
}

HRESULT QueryManager::Pause(const QueryId& id) {
    const QueryPtr query = Find(id);
    if (!query)
        return hr::nothingToDo;
    query->Pause();
    return hr::ok;
}

HRESULT QueryManager::Resume(const QueryId& id) {
    const QueryPtr query = Find(id);
    if (!query)
        return hr::nothingToDo;
    query->Resume();
    return hr::ok;
}

void QueryManager::StopAllQueries() {
    const wm::Hold hold(lock_);
    accepting_ = false;
    for (const auto& [id, query] : queries_)
        query->Cancel();
}

void QueryManager::AbandonAllQueries() {
    const wm::Hold hold(lock_);
    for (auto& [id, query] : queries_)
        Queries().leaving.Add(std::move(query));
    queries_.clear();
}

// A query stays entered until its end, since others may come to wait for it as well.
void QueryManager::WaitAllQueries() {
    for (;;) {
        std::pair<QueryId, QueryPtr> next;
        {
            const wm::Hold hold(lock_);
            accepting_ = false;
            if (queries_.empty())
                return;
            next = *queries_.begin();
        }
        Await(next.second);
        const wm::Hold hold(lock_);
        queries_.erase(next.first);
    }
}

}  // namespace ZEL
