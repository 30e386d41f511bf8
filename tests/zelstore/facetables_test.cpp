#include <gtest/gtest.h>

#include <cstring>

#include "zelstore/diskmonitor/diskspacemonitor.h"
#include "zelstore/diskmonitor/diskspacemonitorevent.h"
#include "zelstore/diskmonitor/diskspacemonitormanager.h"
#include "zelstore/eventsquery.h"
#include "zelstore/eventstoreproxy.h"
#include "zelstore/jobs/jobworkercontroller.h"

// A host calls an operation by its place in the table of a face. These places never change.

namespace ZEL {
namespace {

using Table = std::vector<std::size_t>;

// Where the table has an operation: the compiler keeps it in the pointer to a virtual member.
template <typename Class, typename Result, typename... Arguments>
std::size_t Place(Result (Class::*operation)(Arguments...)) {
    std::size_t offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    return offset / sizeof(void*);
}

class Owner final : public IObjectOwner {
public:
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return ++references; }
    std::int64_t Release() override { return --references; }
    TobResult ReleaseModule(void*) override { return TOB_OK; }
    TobResult AddRefModule(void*) override { return attachAnswer; }

    int references = 0;
    TobResult attachAnswer = TOB_OK;
};

// The face's own operations are `places`, in the order of the contract; behind them stand those on
// the owner, which are called through the table.
void ExpectTable(ITobBase* face, const Table& places) {
    for (std::size_t i = 0; i < places.size(); ++i)
        EXPECT_EQ(places[i], i + 3) << "operation " << i << " behind those of ITobBase";
    void** const owned = *reinterpret_cast<void***>(face) + 3 + places.size();
    const auto get = reinterpret_cast<ITobBase* (*)(void*)>(owned[0]);
    const auto set = reinterpret_cast<ITobBase* (*)(void*, ITobBase*)>(owned[1]);
    const auto attach = reinterpret_cast<TobResult (*)(void*, ITobBase*)>(owned[2]);
    Owner first, second;
    EXPECT_EQ(set(face, &first), &first);
    EXPECT_EQ(set(face, &first), &first);
    EXPECT_EQ(first.references, 1) << "the same owner is not counted twice";
    second.attachAnswer = TOBERR_FAIL;
    EXPECT_EQ(attach(face, &second), TOBERR_FAIL);
    EXPECT_EQ(get(face), &first);
    second.attachAnswer = TOB_OK;
    EXPECT_EQ(attach(face, &second), TOB_OK);
    EXPECT_EQ(get(face), &second);
    EXPECT_EQ(set(face, nullptr), nullptr);
    EXPECT_EQ(first.references + second.references, 0);
}

TEST(FaceTables, StoreAndQuery) {
    using S = IEventStore7;
    const CountedPtr<S> store(new EventStoreProxy);
    ExpectTable(
        store.Get(),
        {Place(&S::MakeKey), Place(&S::Insert), Place(&S::Query), Place(&S::Purge),
         Place(&S::GetDatabaseErrors), Place(&S::ClearDatabaseErrors), Place(&S::Initialize),
         Place(&S::Stop), Place(&S::Shutdown), Place(&S::QueryEx), Place(&S::GetOldestDate),
         Place(&S::MakePropertyKey), Place(&S::MakeEnrichmentKey), Place(&S::InsertSilent),
         Place(&S::SetLiveMode), Place(&S::MakeFlaggedEnrichmentKey)});
    using Q = IZelStoreQuery2;
    const CountedPtr<Q> query(new EventsQuery);
    ExpectTable(query.Get(),
                {Place(&Q::ReservedA), Place(&Q::ReservedB), Place(&Q::StopAndWait),
                 Place(&Q::RequestStop), Place(&Q::Start), Place(&Q::Pause), Place(&Q::Resume)});
    using F = ITobFactory2;
    using Create = TobResult (F::*)(const GUID&, void**);
    using CreateOwned = TobResult (F::*)(const GUID&, void**, ITobBase*);
    const CountedPtr<F> factory(new CTobFactoryImpl<EventsQuery>);
    ExpectTable(factory.Get(), {Place(static_cast<Create>(&F::CreateInstance)),
                                Place(static_cast<CreateOwned>(&F::CreateInstance))});
}

TEST(FaceTables, DiskMonitor) {
    using R = IMonitorRegistration;
    const CountedPtr<R> monitor(new DiskSpaceMonitor);
    ExpectTable(monitor.Get(), {Place(&R::Subscribe), Place(&R::Unsubscribe)});
    EXPECT_EQ(Place(&IMonitorConfiguration::SetThresholds), 3u);
    using L = IMonitorLifetime;
    EXPECT_EQ((Table{Place(&L::Start), Place(&L::Stop), Place(&L::Wait)}), (Table{3, 4, 5}));
    using M = IDiskSpaceMonitorManager;
    const CountedPtr<M> manager(new DiskSpaceMonitorManager);
    ExpectTable(manager.Get(), {Place(&M::StartMonitor), Place(&M::StopMonitor),
                                Place(&M::GetRegistration), Place(&M::GetConfiguration)});
    const CountedPtr<IMonitorEvent> event(new DiskSpaceMonitorEvent(DiskState::stop));
    ExpectTable(event.Get(), {Place(&IMonitorEvent::GetState)});
    EXPECT_EQ(Place(&IMonitorSubscriber::OnMonitorEvent), 3u);
}

TEST(FaceTables, JobController) {
    using J = IZELJobController;
    const CountedPtr<J> controller(new CJobWorkerController);
    ExpectTable(controller.Get(), {Place(&J::Initialize),
                                   Place(&J::Uninitialize),
                                   Place(&J::Detach),
                                   Place(&J::AttachJobByName),
                                   Place(&J::AttachJob),
                                   Place(&J::IsActive),
                                   Place(&J::StopJob),
                                   Place(&J::RunJob),
                                   Place(&J::RunJobNow),
                                   Place(&J::RunJobAndWait),
                                   Place(&J::IsActiveOrQueued),
                                   Place(&J::WaitForEnd),
                                   Place(&J::GetId),
                                   Place(&J::GetStatus),
                                   Place(&J::Start),
                                   Place(&J::GetEnabled),
                                   Place(&J::SetEnabled),
                                   Place(&J::SyncSchedule),
                                   Place(&J::SetPeriodicSchedule),
                                   Place(&J::SetDailySchedule),
                                   Place(&J::SetScheduleWindow)});
    EXPECT_EQ(Place(&wmJobMgr::IStatusCallback::OnStatusChanged), 3u);
}

}  // namespace
}  // namespace ZEL
