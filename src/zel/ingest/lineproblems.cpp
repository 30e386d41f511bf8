#include "zel/ingest/lineproblems.h"

#include "zel/terminal/messages.h"

namespace zel {

namespace {

// Enough to see what is wrong, few enough to be read.
constexpr std::uint64_t mostInFull = 10;

}  // namespace

// Counted also where it is told, so that the account at the end has all.
void LineProblems::Add(const std::string& place, const LineProblem& problem) {
    ++count_;
    Kind& kind = kinds_[problem.kind];
    if (++kind.count == 1)
        kind.first = place;
    if (tellsAll_ || kind.count <= mostInFull)
        Say(place + ": " + std::string(problem.kind) + problem.detail);
}

void LineProblems::TellRest() const {
    for (const auto& [name, kind] : kinds_)
        if (!tellsAll_ && kind.count > mostInFull)
            Say(std::to_string(kind.count) + " lines: " + std::string(name) + "; first at " +
                kind.first + " (-v tells all)");
}

}  // namespace zel
