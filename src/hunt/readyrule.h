#pragma once

#include <string>
#include <vector>

#include "hunt/rule.h"
#include "hunt/ruleevent.h"
#include "hunt/ruleset.h"
#include "hunt/valuetester.h"

namespace zel {

// A part of a rule's condition, made ready. What fields that no event has decide is decided here,
// so that neither `certain` nor `impossible` stands below another node.
struct ReadyNode {
    enum class Kind : std::uint8_t { all, any, none, field, anyValue, certain, impossible };
    Kind kind = Kind::certain;
    std::string_view search;  // the name of the search it belongs to
    std::vector<ReadyNode> children;
    // Of `field` and `anyValue`.
    const FieldTest* test = nullptr;
    FieldId field = 0;
    std::vector<ValueTester> testers;
    std::vector<FieldId> others;  // of each tester the field that it compares with
};

// A rule on events, made ready for those of its source. Keeps to the rule, which must outlive it.
// Any thread.
class ReadyRule {
public:
    // A rule of rules can't fit.
    ReadyRule(const Rule& rule, RuleVocabulary* vocabulary);

    const RuleReach& Reach() const noexcept { return reach_; }
    // Of a rule that can fit.
    SourceId Source() const noexcept { return source_; }
    const ReadyNode& Condition() const noexcept { return condition_; }

    // The event must have been read, and must outlive the views that it gives.
    bool Fits(RuleEvent& event) const;
    // Of an event that fits: "selection_img: Image ends with \fodhelper.exe".
    std::vector<std::string> WhyOf(RuleEvent& event) const;

private:
    RuleReach reach_;
    SourceId source_ = 0;
    ReadyNode condition_;
};

}  // namespace zel
