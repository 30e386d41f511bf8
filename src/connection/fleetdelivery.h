#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/countedptr.h"
#include "fleet/answerrow.h"
#include "zelstore/ieventstore.h"

namespace zel {

// Rows of a fleet's answer on their way to a query's callback: one by one where it takes rows, else
// in batches, as rows by time of receipt always are. For one thread.
class FleetDelivery {
public:
    explicit FleetDelivery(ZEL::IQueryCallback& callback);

    // Both: hr::nothingToDo when no further row is wanted, hr::aborted when the callback refuses,
    // hr::outOfMemory. `text` is the row's with what is joined to it.
    ZEL::HRESULT Give(const fleet::FleetRow& row, std::string_view text, bool isReceipt);
    // What waits for a batch to be full.
    ZEL::HRESULT Flush();

private:
    ZEL::IQueryCallback& callback_;
    ZEL::CountedPtr<ZEL::IQueryRows> rows_;  // null for most
    std::size_t mostResults_ = 100;
    ZEL::CountedPtr<ZEL::IValueCollection> batch_;
    std::string resumeTime_;  // of the batch's last row; empty for rows of events
    std::uint32_t resumeNumber_ = 0;
};

}  // namespace zel
