#include "zelstore/diskmonitor/diskspacemonitormanager.h"

#include "common/boundary.h"
#include "common/errorreport.h"
#include "common/lock.h"
#include "common/neverdestroyed.h"
#include "common/trace.h"
#include "zelstore/diskmonitor/diskspacemonitor.h"

// The module's monitor. It is held by two of its faces, which hosts ask for; the third, which
// starts and ends it, is asked for when it is needed. What is let go is released without a lock,
// since its destructor waits for a thread whose subscribers may come here at that moment.
//
// A second start replaces the faces and so drops the former monitor, unless a host holds one of
// them: that one then goes on until the last is released.

namespace ZEL {

namespace {

// A pointer that all managers share. No call goes out under its lock: what is let go may be the
// last reference to a monitor, which then waits for its thread.
template <typename Face>
class SharedFace {
public:
    CountedPtr<Face> Get() {
        const wm::Hold hold(lock_);
        return face_;
    }
    CountedPtr<Face> Exchange(CountedPtr<Face> face) {
        const wm::Hold hold(lock_);
        return std::exchange(face_, std::move(face));
    }

private:
    wm::Lock lock_;
    CountedPtr<Face> face_ GUARDED_BY(lock_);
};

struct SharedMonitor {
    SharedFace<IMonitorConfiguration> configuration;
    SharedFace<IMonitorRegistration> registration;
};

// A monitor that nobody stopped runs until the process ends.
SharedMonitor& Shared() {
    static wm::NeverDestroyed<SharedMonitor> shared;
    return *shared;
}

template <typename Face>
CountedPtr<Face> Ask(ITobBase& object, const GUID& iid) {
    CountedPtr<Face> face;
    IgnoreResult(object.QueryInterface(iid, face.ReceiveVoid()), "null then");
    return face;
}

HRESULT Reported(HRESULT result) {
    if (Failed(result)) {
        wm::Trace(wm::message::monitorNotStartedOrEnded, result);
        wm::ReportError(result);
    }
    return result;
}

template <typename Face>
HRESULT Give(SharedFace<Face>& shared, Face** out) {
    if (out == nullptr)
        return hr::invalidArgument;
    CountedPtr<Face> face = shared.Get();
    if (!face)
        return hr::ok;
    if (*out != nullptr)
        (*out)->Release();
    *out = face.Detach();
    return hr::ok;
}

}  // namespace

HRESULT DiskSpaceMonitorManager::StartMonitor() {
    return Reported(AtBoundary([] {
        const CountedPtr<IMonitorLifetime> monitor(new DiskSpaceMonitor());
        const HRESULT started = monitor->Start();
        if (Failed(started))
            return started;
        if (auto face = Ask<IMonitorConfiguration>(*monitor, iidMonitorConfiguration))
            Shared().configuration.Exchange(std::move(face));
        if (auto face = Ask<IMonitorRegistration>(*monitor, iidMonitorRegistration))
            Shared().registration.Exchange(std::move(face));
        return hr::ok;
    }));
}

HRESULT DiskSpaceMonitorManager::StopMonitor() {
    return AtBoundary([] {
        const auto registration = Shared().registration.Exchange(nullptr);
        const auto configuration = Shared().configuration.Exchange(nullptr);
        if (!configuration)
            return hr::ok;
        const auto lifetime = Ask<IMonitorLifetime>(*configuration, iidMonitorLifetime);
        if (!lifetime)
            return hr::ok;
        const HRESULT stopped = lifetime->Stop();
        return Failed(stopped) ? Reported(stopped) : Reported(lifetime->Wait());
    });
}

HRESULT DiskSpaceMonitorManager::GetRegistration(IMonitorRegistration** out) {
    return Give(Shared().registration, out);
}

HRESULT DiskSpaceMonitorManager::GetConfiguration(IMonitorConfiguration** out) {
    return Give(Shared().configuration, out);
}

}  // namespace ZEL
