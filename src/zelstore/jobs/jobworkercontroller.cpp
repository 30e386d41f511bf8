#include "zelstore/jobs/jobworkercontroller.h"

namespace ZEL {

TobResult CJobWorkerController::QueryInterface(const GUID& iid, void** out) {
    wmJobMgr::IStatusCallback* const face = this;
    const InterfaceRow rows[] = {{wmJobMgr::iidStatusCallback, face}};
    return FindInterface(rows, iid, face, out);
}

HRESULT CJobWorkerController::AttachJob(const GUID& id) {
    jobId_ = id;
    return hr::ok;
}

HRESULT CJobWorkerController::GetId(GUID* id) {
    if (id == nullptr)
        return hr::invalidArgument;
    *id = jobId_;
    return hr::ok;
}

HRESULT CJobWorkerController::IsActive(bool* active) {
    if (active == nullptr)
        return hr::invalidArgument;
    *active = false;
    return hr::ok;
}

HRESULT CJobWorkerController::GetStatus(std::int32_t* status) {
    if (status == nullptr)
        return hr::invalidArgument;
    *status = jobStatus::noRun;
    return hr::ok;
}

HRESULT CJobWorkerController::GetEnabled(bool* enabled) {
    if (enabled == nullptr)
        return hr::invalidArgument;
    *enabled = false;
    return hr::ok;
}

}  // namespace ZEL
