#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel::fleet {

// Rows that are sent in one request.
struct RowBatch {
    std::string_view table;         // of the program's life
    std::string rows;               // lines
    std::vector<std::size_t> ends;  // of each line, behind its end
    std::string place;              // where the fleet has come to with it; empty: no further
    std::uint64_t missed = 0;       // events that are known to be gone ahead of it
    // A folder of enrichments that the fleet has with it, and how it looked; empty: none.
    std::string folder, folderLook;

    bool IsEmpty() const noexcept {
        return ends.empty() && place.empty() && missed == 0 && folder.empty();
    }
};

}  // namespace zel::fleet
