#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "common/countedptr.h"
#include "host/wmjobmgr/schedule.h"

namespace wmjobmgr {
namespace {

using ZEL::CountedPtr;
namespace hr = ZEL::hr;
namespace jobTrigger = ZEL::jobTrigger;

constexpr std::uint64_t minuteMs = 60000, hourMs = 60 * minuteMs;

TEST(Schedule, TellsTheNextRun) {
    constexpr wm::SystemTime now{2026, 11, 4, 12, 10, 0, 0, 500};  // at 10:00:00.5
    const ZEL::JobTriggerValue periodic{{1, 0, 0}}, daily{{2, 0, 0}};
    const auto number = [](std::uint32_t n) { return ZEL::JobTriggerValue{{n, 0, 0}}; };
    const struct {
        std::map<std::uint32_t, ZEL::JobTriggerValue> values;
        bool isFirst;
        std::optional<std::uint64_t> delayMs;
    } rows[] = {
        {{}, true, std::nullopt},
        {{{0, number(77)}, {1, number(5)}}, true, std::nullopt},
        {{{0, periodic}}, true, std::nullopt},
        {{{0, periodic}, {1, number(60)}}, true, 0},
        {{{0, periodic}, {1, number(60)}, {2, number(7)}}, true, 7000},
        {{{0, periodic}, {1, number(60)}, {2, number(7)}}, false, minuteMs},
        {{{0, daily}, {6, {{10, 30, 1}}}}, true, 30 * minuteMs + 500},
        {{{0, daily}, {6, {{9, 0, 0}}}}, false, 23 * hourMs - 500},
        {{{0, daily}, {6, {{24, 0, 0}}}}, false, 14 * hourMs - 500},
        // Windows: 09:00 to 11:00, 11:00 to 12:00, and 22:00 to 06:00 over midnight.
        {{{0, periodic}, {1, number(60)}, {23, number(32400)}, {24, number(39600)}}, true, 0},
        {{{0, periodic}, {1, number(60)}, {23, number(39600)}, {24, number(43200)}},
         true,
         hourMs - 500},
        {{{0, periodic}, {1, number(60)}, {23, number(79200)}, {24, number(21600)}},
         false,
         12 * hourMs - 500},
        {{{0, daily}, {6, {{23, 0, 0}}}, {23, number(79200)}, {24, number(21600)}},
         true,
         13 * hourMs - 500},
        {{{0, daily}, {6, {{12, 0, 0}}}, {23, number(79200)}, {24, number(21600)}},
         true,
         12 * hourMs - 500},
        {{{0, periodic}, {1, number(60)}, {23, number(5)}, {24, number(5)}}, true, 0},
    };
    for (const auto& row : rows) {
        Trigger trigger;
        for (const auto& [value, in] : row.values)
            trigger.Set(value, in);
        EXPECT_EQ(DelayToNextRunMs(trigger, now, row.isFirst ? NextRun::first : NextRun::later),
                  row.delayMs)
            << &row - rows;
    }
    Trigger atTen;
    atTen.Set(jobTrigger::kind, daily);
    atTen.Set(jobTrigger::timeOfDay, {{10, 0, 0}});
    EXPECT_EQ(DelayToNextRunMs(atTen, {2026, 11, 4, 12, 10, 0, 0, 0}, NextRun::later), 24 * hourMs);
}

class Jobs : public testing::Test {
public:  // jobs reach in
    Jobs() {
        EXPECT_EQ(wm::OpenJobManager(manager_.Receive()), ZEL::TOB_OK);
        EXPECT_EQ(manager_->QueryInterface(ZEL::iidJobRegistry, registry_.ReceiveVoid()),
                  ZEL::TOB_OK);
        EXPECT_EQ(manager_->GetJob(ZEL::storeJobId, job_.Receive()), hr::ok);
        EXPECT_TRUE(ran_.Create(wm::EventReset::automatic) &&
                    stopped_.Create(wm::EventReset::automatic));
    }
    void Register(ZEL::IJobRegistry::JobFunction run) {
        ASSERT_EQ(registry_->RegisterJob(ZEL::storeJobId, nullptr, run, this), hr::ok);
    }
    void Set(std::uint32_t value, std::uint32_t number) {
        ASSERT_EQ(job_->SetTriggerValue(0, value, {{number, 0, 0}}), hr::ok);
    }
    static void Await(wm::EventObject& event) {
        const ZEL::HANDLE handle = event.Handle();
        ASSERT_EQ(wm::WaitForAny(1, &handle, wm::waitForever), 0u);
    }

    CountedPtr<ZEL::IJobManager> manager_;
    CountedPtr<ZEL::IJobRegistry> registry_;
    CountedPtr<ZEL::IJob> job_;
    wm::EventObject ran_, stopped_;
};

TEST_F(Jobs, SavedTriggersRunTheJob) {
    Register([](void* context, ZEL::HANDLE) {
        static_cast<Jobs*>(context)->ran_.Set();
        return hr::ok;
    });
    Set(jobTrigger::kind, jobTrigger::periodic);
    Set(jobTrigger::period, 100000);
    CountedPtr<ZEL::IJobDefinition> definition;
    ZEL::JobTriggerValue value;
    ASSERT_EQ(manager_->GetDefinition(ZEL::storeJobId, definition.Receive()), hr::ok);
    ASSERT_EQ(definition->GetTriggerValue(0, jobTrigger::period, &value), hr::ok);
    EXPECT_EQ(value.part[0], 0u) << "it is not saved";
    ASSERT_EQ(job_->Save(), hr::ok);
    ASSERT_EQ(manager_->GetDefinition(ZEL::storeJobId, definition.Receive()), hr::ok);
    ASSERT_EQ(definition->GetTriggerValue(0, jobTrigger::period, &value), hr::ok);
    EXPECT_EQ(value.part[0], 100000u);
    Await(ran_);
    // A run that falls due while the former one still ends is left out.
    std::int32_t status = 0;
    while (Succeeded(job_->GetStatus(&status)) && status != ZEL::jobStatus::ended)
        std::this_thread::yield();
    ASSERT_EQ(job_->Reschedule(100000, 0, ZEL::jobRescheduleBoth), hr::ok);
    Await(ran_);
    EXPECT_EQ(job_->Reschedule(0, 0, ZEL::jobRescheduleBoth), hr::invalidArgument);
    EXPECT_EQ(job_->GetTriggerValue(1, jobTrigger::kind, &value), hr::notFound);
    EXPECT_EQ(manager_->GetDefinition(ZEL::GUID(), definition.Receive()), hr::notFound);
    while (Failed(job_->Start(0)))
        std::this_thread::yield();
    Await(ran_);
    Register(nullptr);
}

TEST_F(Jobs, RunsAreAskedToStop) {
    Register([](void* context, ZEL::HANDLE stop) {
        auto& test = *static_cast<Jobs*>(context);
        test.ran_.Set();
        EXPECT_EQ(wm::WaitForAny(1, &stop, wm::waitForever), 0u);
        test.stopped_.Set();
        return hr::ok;
    });
    ASSERT_EQ(job_->Start(0), hr::ok);
    Await(ran_);
    EXPECT_EQ(job_->Start(0), ZEL::jobAlreadyRunning);
    bool present = true;
    std::uint32_t runs = 1;
    EXPECT_EQ(job_->GetRunInformation(&present, &runs), hr::ok);
    EXPECT_FALSE(present) << "it runs";
    ASSERT_EQ(job_->Stop(), hr::ok);
    Await(stopped_);
    std::int32_t status = 0;
    do
        ASSERT_EQ(job_->GetStatus(&status), hr::ok);
    while (status != ZEL::jobStatus::ended);
    ASSERT_EQ(job_->Stop(), hr::ok) << "no run: nothing to stop";
    ASSERT_EQ(job_->Start(0), hr::ok);
    Await(ran_);
    Register(nullptr);
    ASSERT_EQ(job_->Stop(), hr::ok);
    Await(stopped_);
}

TEST_F(Jobs, AreListedWithTheirNames) {
    CountedPtr<ZEL::IJobList> list;
    ASSERT_EQ(manager_->EnumerateJobs(list.Receive()), hr::ok);
    std::set<std::wstring> names;
    for (std::size_t i = 0; i < list->Count(); ++i) {
        CountedPtr<ZEL::ITobBase> item;
        CountedPtr<ZEL::IJobInfo> info;
        CountedPtr<ZEL::IStringValue> name;
        ASSERT_EQ(list->GetItem(i, item.Receive()), hr::ok);
        ASSERT_EQ(item->QueryInterface(ZEL::iidJobInfo, info.ReceiveVoid()), ZEL::TOB_OK);
        ASSERT_EQ(info->GetName(name.Receive()), hr::ok);
        names.insert(name->GetText());
    }
    EXPECT_EQ(names.size(), 3u);
    EXPECT_TRUE(names.contains(L"ZEL\\FDRRetentionJob"));
    EXPECT_TRUE(names.contains(L"ZEL\\FDRSubmissionJob"));
    CountedPtr<ZEL::ITobBase> item;
    EXPECT_EQ(list->GetItem(list->Count(), item.Receive()), hr::invalidArgument);
}

}  // namespace
}  // namespace wmjobmgr
