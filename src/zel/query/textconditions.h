#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "questions/condition.h"
#include "questions/narrowing.h"
#include "zel/commands.h"
#include "zel/query/eventfilter.h"

namespace zel {

// What flags ask of events beyond their keys. Each has to fit, by one of its alternatives.
using TextConditions = std::vector<Alternatives>;

// Of --where, --cmd-line, --user, --pid, --port and --grep. False, with words in `problem` that
// name the flag and point at the place, where one can't be asked.
bool ReadTextConditions(const QueryOptions& options, TextConditions* conditions,
                        std::string* problem);
// What the keys decide of them.
Narrowing NarrowingOf(const TextConditions& conditions);
// For people, one a line: what the text of an event is tested for, and whether keys are as well.
std::vector<std::string> InWords(const TextConditions& conditions);

// Lets pass what fits.
class TextFilter final : public EventFilter {
public:
    explicit TextFilter(const TextConditions& conditions) : conditions_(conditions) {}
    bool Fits(std::string_view event) override;
    std::uint64_t Untested() const noexcept override { return untested_; }

private:
    EventConditions conditions_;
    std::uint64_t untested_ = 0;
};

}  // namespace zel
