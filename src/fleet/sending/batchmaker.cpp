#include "fleet/sending/batchmaker.h"

#include <utility>

namespace zel::fleet {

bool BatchMaker::Give() {
    if (batch_.IsEmpty())
        return true;
    RowBatch next;
    next.table = batch_.table;
    next.rows.reserve(batch_.rows.size());
    next.ends.reserve(batch_.ends.size());
    return delivery_.Give(std::exchange(batch_, std::move(next)));
}

}  // namespace zel::fleet
