#include "zel/ingest/noruletally.h"

#include <algorithm>
#include <vector>

#include "common/asciicase.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

constexpr std::size_t mostKinds = 1000;
constexpr std::size_t mostInOneLine = 6;

std::string KindOf(const SourceItem& item) {
    std::string kind = item.channel;
    if (!item.event.empty())
        kind += (kind.empty() ? "" : " ") + item.event;
    if (!item.problem.empty())
        kind += " (" + std::string(item.problem) + item.detail + ")";
    return kind.empty() ? "(no name)" : kind;
}

}  // namespace

bool NoRuleTally::Less::operator()(const std::string& a, const std::string& b) const noexcept {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return ZEL::ToUpperAscii(x) < ZEL::ToUpperAscii(y);
    });
}

void NoRuleTally::Add(const SourceItem& item) {
    ++count_;
    std::string kind = KindOf(item);
    if (kinds_.size() >= mostKinds && kinds_.find(kind) == kinds_.end())
        kind = "(others)";
    ++kinds_[kind];
}

void NoRuleTally::Tell(bool tellsAll) const {
    if (count_ == 0)
        return;
    std::vector<std::pair<std::string, std::uint64_t>> kinds(kinds_.begin(), kinds_.end());
    std::stable_sort(kinds.begin(), kinds.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string line;
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const std::string text = std::to_string(kinds[i].second) + " of " + Escaped(kinds[i].first);
        if (tellsAll)
            Say("no rule for " + text);
        else if (i < mostInOneLine)
            line += (i > 0 ? ", " : "") + text;
    }
    if (tellsAll)
        return;
    const std::size_t more = kinds.size() - std::min(kinds.size(), mostInOneLine);
    Say("no rule for " + line +
        (more > 0 ? ", and " + std::to_string(more) + " other kind(s); -v tells all" : ""));
}

}  // namespace zel
