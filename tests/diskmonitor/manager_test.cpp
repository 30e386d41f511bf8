#include <gtest/gtest.h>

#include "subscriber.h"
#include "support/client.h"
#include "support/fakesettings.h"
#include "support/storefixture.h"

namespace ZEL {
namespace {

using test::LoadedComponent;
using test::States;
using test::Subscriber;

class MonitorManager : public testing::Test {
protected:
    CountedPtr<IDiskSpaceMonitorManager> MakeManager() {
        CountedPtr<IDiskSpaceMonitorManager> manager;
        EXPECT_EQ(component.Factory(diskSpaceMonitorManagerObjectId)
                      ->CreateInstance(iidDiskSpaceMonitorManager, manager.ReceiveVoid()),
                  TOB_OK);
        return manager;
    }

    test::FakeSettings settings;
    test::TempStore store;
    const LoadedComponent component;
};

TEST_F(MonitorManager, AllManagersShareOneMonitor) {
    {
        const auto first = MakeManager(), second = MakeManager();
        auto* const untouched = reinterpret_cast<IMonitorRegistration*>(0x10);
        IMonitorRegistration* none = untouched;
        EXPECT_EQ(first->StopMonitor(), hr::ok) << "nothing to stop";
        EXPECT_EQ(first->GetRegistration(&none), hr::ok);
        EXPECT_EQ(none, untouched);

        ASSERT_EQ(first->StartMonitor(), hr::ok);
        CountedPtr<IMonitorRegistration> registration;
        CountedPtr<IMonitorConfiguration> configuration;
        ASSERT_EQ(second->GetRegistration(registration.Receive()), hr::ok);
        ASSERT_EQ(second->GetConfiguration(configuration.Receive()), hr::ok);
        IMonitorRegistration* again = registration.Get();
        again->AddRef();
        EXPECT_EQ(first->GetRegistration(&again), hr::ok) << "what was held is released";
        EXPECT_EQ(again, registration.Get());
        EXPECT_GT(again->Release(), 0);
        EXPECT_EQ(configuration->SetThresholds(1, 0), hr::ok);
        const auto subscriber = Subscriber::Make();
        ASSERT_EQ(registration->Subscribe(subscriber.Get()), hr::ok);
        EXPECT_EQ(subscriber->Heard(), States{test::toResume});

        EXPECT_EQ(second->StopMonitor(), hr::ok);
        EXPECT_EQ(first->GetRegistration(&none), hr::ok);
        EXPECT_EQ(none, untouched) << "ended for all";
        registration.Reset();
        EXPECT_EQ(subscriber->References(), 2) << "the configuration still keeps the monitor";
        configuration.Reset();
        EXPECT_EQ(subscriber->References(), 1);
        EXPECT_EQ(subscriber->latest->GetState(), test::toResume) << "an event may be kept";
        ASSERT_EQ(first->StartMonitor(), hr::ok);
        ASSERT_EQ(first->StartMonitor(), hr::ok) << "in place of the former";
        EXPECT_EQ(first->StopMonitor(), hr::ok);
    }
    EXPECT_EQ(component.getObjectCount(), 0u);
}

TEST_F(MonitorManager, MonitorHasTheFacesOfItsClass) {
    {
        CountedPtr<IMonitorLifetime> lifetime;
        CountedPtr<IMonitorRegistration> registration;
        CountedPtr<IMonitorConfiguration> configuration;
        void* out = nullptr;
        ASSERT_EQ(component.Factory(diskSpaceMonitorObjectId)
                      ->CreateInstance(iidMonitorLifetime, lifetime.ReceiveVoid()),
                  TOB_OK);
        ASSERT_EQ(lifetime->QueryInterface(iidMonitorRegistration, registration.ReceiveVoid()),
                  TOB_OK);
        ASSERT_EQ(
            registration->QueryInterface(iidMonitorConfiguration, configuration.ReceiveVoid()),
            TOB_OK);
        EXPECT_EQ(lifetime->QueryInterface(iidMonitorEvent, &out), TOBERR_NO_INTERFACE);
    }
    EXPECT_EQ(component.getObjectCount(), 0u);
}

}  // namespace
}  // namespace ZEL
