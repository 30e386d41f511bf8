#include "connection/fleetdelivery.h"

#include <algorithm>

#include "common/valuetext.h"
#include "records/eventtime.h"

namespace zel {

namespace hr = ZEL::hr;
using ZEL::HRESULT;

FleetDelivery::FleetDelivery(ZEL::IQueryCallback& callback)
    : callback_(callback),
      batch_(ZEL::CountedPtr<ZEL::IValueCollection>::Adopt(wm::CreateValueCollection())) {
    if (Failed(callback.QueryInterface(ZEL::iidQueryRows, rows_.ReceiveVoid())))
        rows_.Reset();
    ZEL::CountedPtr<ZEL::IQueryBatches> batches;
    if (Succeeded(callback.QueryInterface(ZEL::iidQueryBatches, batches.ReceiveVoid()))) {
        const std::uint32_t most = batches->MostResults();
        mostResults_ = most == 0 ? mostResults_ : std::min<std::size_t>(most, mostResults_);
    }
}

HRESULT FleetDelivery::Give(const fleet::FleetRow& row, std::string_view text, bool isReceipt) {
    if (rows_ && !isReceipt) {
        const HRESULT result = rows_->OnQueryRow({row.key, text, {}, row.host});
        return Failed(result) ? hr::aborted : result;
    }
    const auto value = wm::ToValue(text);
    if (!batch_ || !value || !batch_->Add(value.Get()))
        return hr::outOfMemory;
    if (isReceipt) {
        const auto time = EventTimeOfMilliseconds(static_cast<std::int64_t>(row.receiveMs));
        resumeTime_ = time ? time->text : "";
        resumeNumber_ = row.receiveNo;
    }
    return batch_->Count() >= mostResults_ ? Flush() : hr::ok;
}

HRESULT FleetDelivery::Flush() {
    if (!batch_ || batch_->Count() == 0)
        return hr::ok;
    const auto time = wm::ToValue(resumeTime_);
    if (!time)
        return hr::outOfMemory;
    const HRESULT result = callback_.OnQueryResults(hr::ok, batch_.Get(), false, false, time.Get(),
                                                    static_cast<std::int32_t>(resumeNumber_));
    batch_ = ZEL::CountedPtr<ZEL::IValueCollection>::Adopt(wm::CreateValueCollection());
    return Failed(result) ? hr::aborted : hr::ok;
}

}  // namespace zel
