#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

#include "common/hostservices.h"
#include "common/settingsvalue.h"
#include "common/textbridge.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zelstore/diskmonitor/idiskspacemonitor.h"

// `--once` looks by itself: the component's monitor first looks a minute after its start. Without
// it the component does the watching, and this program only prints what it announces, from
// whichever thread that comes. Its thresholds are those of the settings, unless flags say
// otherwise.

namespace zel {

namespace {

using ZEL::CountedPtr;
using ZEL::DiskState;

constexpr std::uint64_t bytesPerMegabyte = 1000000;
// Those of the component, which `--once` does not ask.
constexpr std::uint32_t defaultStop = 2500;
constexpr std::uint32_t defaultPercentage = 10;

struct Thresholds {
    std::uint32_t stopBelow = defaultStop;
    std::uint32_t percentage = defaultPercentage;
};

// What the command line says, else the settings, else the defaults.
Thresholds ReadThresholds(const MonitorOptions& options) {
    Thresholds thresholds;
    wm::OpenSettingsKey key;
    if (Succeeded(key.Open(L"ZEL\\Settings\\DiskMonitor"))) {
        std::uint32_t value = 0;
        if (Succeeded(key->ReadNumber(L"StopThreshold", &value)))
            thresholds.stopBelow = value;
        if (Succeeded(key->ReadNumber(L"ResumePercentage", &value)))
            thresholds.percentage = value;
    }
    thresholds.stopBelow = options.stopBelow.value_or(thresholds.stopBelow);
    thresholds.percentage = options.resumePercentage.value_or(thresholds.percentage);
    return thresholds;
}

// By the host's service, as the component measures, so that both tell the same.
bool FreeMegabytes(const std::string& directory, std::uint64_t* freeMb) {
    std::wstring wide;
    std::uint64_t bytes = 0;
    if (!wm::ToWide(directory, wide) || Failed(wm::FreeSpace().AvailableBytes(wide, &bytes)))
        return false;
    *freeMb = bytes / bytesPerMegabyte;
    return true;
}

std::string Now() {
    return wm::FormatUtc(wm::Clock().UtcNow());
}

// Prints what it hears, with the free space of that moment.
class Printer final : public ZEL::IMonitorSubscriber {
public:
    Printer(std::string directory, bool asTable)
        : directory_(std::move(directory)), asTable_(asTable) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = iid == ZEL::iidTobBase ? this : nullptr;
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    // Lives on the caller's stack: its count is not looked at.
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }

    // On a thread of the component. A reader that went away is noted and ends the wait of the main
    // thread.
    ZEL::HRESULT OnMonitorEvent(ZEL::IMonitorEvent* event) override {
        Print(event->GetState());
        return ZEL::hr::ok;
    }
    void Print(DiskState state) {
        const char* const name = state == DiskState::stop ? "stop" : "resume";
        std::uint64_t freeMb = 0;
        const bool isKnown = FreeMegabytes(directory_, &freeMb);
        const std::string room = isKnown ? std::to_string(freeMb) : asTable_ ? "?" : "null";
        const std::lock_guard hold(mutex_);
        const int printed =
            asTable_ ? std::printf("%s  %-6s  %s MB free\n", Now().c_str(), name, room.c_str())
                     : std::printf("{\"time\":\"%s\",\"state\":\"%s\",\"free_mb\":%s}\n",
                                   Now().c_str(), name, room.c_str());
        if (printed < 0 || std::fflush(stdout) != 0)
            closed_ = true;
    }
    bool Closed() const noexcept { return closed_; }

private:
    const std::string directory_;
    const bool asTable_;
    std::mutex mutex_;
    std::atomic<bool> closed_{false};
};

int PrintOnce(const std::string& directory, const Thresholds& thresholds, Printer& printer) {
    std::uint64_t freeMb = 0;
    if (!FreeMegabytes(directory, &freeMb)) {
        Say("the free space of " + directory + " can't be told");
        return exitCode::noStore;
    }
    printer.Print(freeMb < thresholds.stopBelow ? DiskState::stop : DiskState::resume);
    return exitCode::done;
}

// Starts the component's monitor; ends it when it goes. A start that failed half-way is stopped as
// well.
class Monitor {
public:
    ~Monitor() {
        if (manager_)
            IgnoreResult(manager_->StopMonitor(), "the program ends");
    }
    bool Start() {
        return Succeeded(wm::LoadInstalledObject(L"ZELStore", ZEL::diskSpaceMonitorManagerObjectId,
                                                 ZEL::iidDiskSpaceMonitorManager,
                                                 manager_.ReceiveVoid())) &&
               Succeeded(manager_->StartMonitor()) &&
               Succeeded(manager_->GetConfiguration(configuration.Receive())) &&
               Succeeded(manager_->GetRegistration(registration.Receive())) && configuration &&
               registration;
    }

private:
    CountedPtr<ZEL::IDiskSpaceMonitorManager> manager_;

public:
    CountedPtr<ZEL::IMonitorConfiguration> configuration;
    CountedPtr<ZEL::IMonitorRegistration> registration;
};

int Watch(const MonitorOptions& options, const Thresholds& thresholds, Printer& printer) {
    Monitor monitor;
    if (!monitor.Start()) {
        Say("the disk monitor can't be started; -v tells why");
        return exitCode::noStore;
    }
    if (options.stopBelow || options.resumePercentage) {
        ForgetDefaultSettings();
        IgnoreResult(
            monitor.configuration->SetThresholds(thresholds.stopBelow, thresholds.percentage),
            "what can't be kept is told; they hold all the same");
    }
    if (Failed(monitor.registration->Subscribe(&printer)))
        return exitCode::noStore;
    // Looks instead of waiting for a signal: nothing tells this thread that the reader has gone.
    while (!Interrupted() && !printer.Closed())
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    IgnoreResult(monitor.registration->Unsubscribe(&printer), "always succeeds");
    return Interrupted() ? exitCode::interrupted : exitCode::done;
}

}  // namespace

int RunMonitor(const MonitorOptions& options) {
    std::string directory;
    if (!FindStore(StoreNeed::reading, &directory))
        return exitCode::noStore;
    const Thresholds thresholds = ReadThresholds(options);
    Printer printer(directory, WantsTable(options.output));
    return options.once ? PrintOnce(directory, thresholds, printer)
                        : Watch(options, thresholds, printer);
}

}  // namespace zel
