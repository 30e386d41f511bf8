#include "job.h"

namespace wmjobmgr {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

ZEL::TobResult Job::QueryInterface(const ZEL::GUID& iid, void** out) {
    ZEL::IJob* const face = this;
    const ZEL::InterfaceRow rows[] = {{ZEL::iidJob, face}};
    return ZEL::FindInterface(rows, iid, this, out);
}

HRESULT Job::GetId(ZEL::GUID* id) {
    if (id == nullptr)
        return hr::invalidArgument;
    *id = id_;
    return hr::ok;
}

HRESULT Job::GetStatus(std::int32_t* status) {
    if (status == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    *status = status_;
    return hr::ok;
}

// Who was told of the end may start the job again at once, also from the callback itself: a thread
// that is about to end takes the new run as well.
HRESULT Job::Start(std::uint32_t) {
    const wm::Hold hold(lock_);
    if (active_)
        return ZEL::jobAlreadyRunning;
    if (!looping_) {
        thread_.Wait();  // its last act was to clear looping_
        if (!thread_.Start([this] {
                Run();
                return hr::ok;
            }))
            return hr::threadNotStarted;
        thread_.SetName("ZEL Job");
        looping_ = true;
    }
    active_ = true;
    return hr::ok;
}

// The host's function is not interrupted: it ends when it has done its work.
HRESULT Job::Stop() {
    thread_.RequestStop();
    return hr::ok;
}

HRESULT Job::GetEnabled(bool* enabled) {
    if (enabled == nullptr)
        return hr::invalidArgument;
    const wm::Hold hold(lock_);
    *enabled = enabled_;
    return hr::ok;
}

HRESULT Job::SetEnabled(bool enabled) {
    const wm::Hold hold(lock_);
    enabled_ = enabled;
    return hr::ok;
}

void Job::SetFunction(const Function& function) {
    const wm::Hold hold(lock_);
    function_ = function;
}

void Job::ChangeStatus(std::int32_t status, bool active) {
    {
        const wm::Hold hold(lock_);
        status_ = status;
        active_ = active;
    }
    tell_(id_, status);
}

void Job::Run() {
    for (;;) {
        RunOnce();
        const wm::Hold hold(lock_);
        looping_ = active_;
        if (!looping_)
            return;
    }
}

void Job::RunOnce() {
    Function function;
    {
        const wm::Hold hold(lock_);
        function = function_;
    }
    ChangeStatus(ZEL::jobStatus::running, true);
    HRESULT result = hr::ok;
    try {
        if (function.run != nullptr)
            result = function.run(function.context);
    } catch (...) {
        result = hr::unexpected;
    }
    ChangeStatus(Failed(result) ? ZEL::jobStatus::failed : ZEL::jobStatus::ended, false);
}

}  // namespace wmjobmgr
