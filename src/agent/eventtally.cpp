#include "agent/eventtally.h"

#include <algorithm>

#include "common/jsontext.h"
#include "common/textbridge.h"

namespace zel {

namespace {

constexpr std::size_t mostTold = 20;

}  // namespace

void EventTally::Add(const Delivery& delivery, const LineProblems& problems, AgentLog& log) {
    const auto duplicates = static_cast<std::uint64_t>(
        std::count_if(delivery.items.begin(), delivery.items.end(),
                      [](const SpoolItem& item) { return item.isDuplicate; }));
    accepted_ += delivery.items.size() - duplicates;
    duplicates_ += duplicates;
    rejected_ += problems.size();
    log.duplicates += duplicates;
    for (const auto& [line, problem] : problems) {
        log.CountRejected(intakeSource::events, problem.kind);
        const std::string reason = problem.Text();
        if (told_.size() < mostTold)
            told_.emplace_back(line, wm::IsUtf8(reason) ? reason : std::string(problem.kind));
    }
}

std::string EventTally::Json(const std::string& further) const {
    std::string text = "{\"accepted\":" + std::to_string(accepted_) +
                       ",\"duplicate\":" + std::to_string(duplicates_) +
                       ",\"rejected\":" + std::to_string(rejected_) + ",\"errors\":[";
    for (std::size_t i = 0; i < told_.size(); ++i)
        text.append(i > 0 ? "," : "")
            .append("{\"line\":" + std::to_string(told_[i].first) + ",\"reason\":")
            .append(wm::JsonString(told_[i].second) + "}");
    return text + "]" + further + "}\n";
}

}  // namespace zel
