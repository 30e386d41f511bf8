#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fleet/fleetrow.h"
#include "fleet/sending/refusedrows.h"
#include "fleet/sending/rowbatch.h"
#include "fleet/sending/rowdelivery.h"

namespace zel::fleet {

struct BatchLimits {
    std::size_t rows = 10000;
    std::size_t bytes = 16U << 20;  // before they are packed
};

// Gathers rows until they are enough for a request. For one thread.
class BatchMaker {
public:
    // All outlive this.
    BatchMaker(std::string_view table, const BatchLimits& limits, RowDelivery& delivery)
        : limits_(limits), delivery_(delivery) {
        batch_.table = table;
    }

    bool IsFull() const noexcept {
        return batch_.ends.size() >= limits_.rows || batch_.rows.size() >= limits_.bytes;
    }
    // Where the next row goes; to be followed by EndRow.
    std::string& Rows() noexcept { return batch_.rows; }
    void EndRow() { batch_.ends.push_back(batch_.rows.size()); }
    // What holds when the fleet has all rows so far.
    RowBatch& Batch() noexcept { return batch_; }
    // Hands it over; it may wait. False when the delivery has ended.
    bool Give();

private:
    const BatchLimits limits_;
    RowDelivery& delivery_;
    RowBatch batch_;
};

}  // namespace zel::fleet
