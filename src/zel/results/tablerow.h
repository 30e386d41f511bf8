#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "zel/terminal/textfit.h"

namespace zel {

// The lines of a table whose columns stand below each other. Texts are escaped and cut; of paths,
// whose end tells most, the beginning goes.
class TableRow {
public:
    static constexpr std::size_t shared = 0;  // a width: an equal part of what others leave

    // `columns`: of the terminal; 0: none are known, and the last column is not cut.
    explicit TableRow(std::size_t columns) : columns_(columns) {}
    void Add(std::size_t width, Keep keep) { cells_.push_back({width, keep}); }
    // Behind the last Add.
    void Settle();

    std::string Line(const std::vector<std::string_view>& texts) const;

private:
    struct Cell {
        std::size_t width;
        Keep keep;
    };

    const std::size_t columns_;
    std::vector<Cell> cells_;
};

}  // namespace zel
