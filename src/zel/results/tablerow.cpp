#include "zel/results/tablerow.h"

#include <algorithm>

namespace zel {

void TableRow::Settle() {
    constexpr std::size_t narrowest = 8, unbound = 40;
    std::size_t taken = 0;
    for (const Cell& cell : cells_)
        taken += cell.width + 1;
    const auto sharing = static_cast<std::size_t>(std::count_if(
        cells_.begin(), cells_.end(), [](const Cell& cell) { return cell.width == shared; }));
    if (sharing == 0)
        return;
    const std::size_t left = columns_ > taken ? columns_ - taken + 1 : 0;
    const std::size_t width = columns_ == 0 ? unbound : std::max(left / sharing, narrowest);
    for (Cell& cell : cells_)
        if (cell.width == shared)
            cell.width = width;
}

std::string TableRow::Line(const std::vector<std::string_view>& texts) const {
    std::string line;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const Cell& cell = cells_[i];
        if (i + 1 == texts.size()) {
            line += columns_ == 0 ? Escaped(texts[i]) : Fit(texts[i], cell.width, cell.keep);
            break;
        }
        const std::string text = Fit(texts[i], cell.width, cell.keep);
        line += text + std::string(cell.width - DisplayWidth(text) + 1, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return (columns_ == 0 ? line : Fit(line, columns_, Keep::start)) + "\n";
}

}  // namespace zel
