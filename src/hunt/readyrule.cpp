#include "hunt/readyrule.h"

#include <algorithm>
#include <set>

// How a rule is fitted to what events of its source have. A test of a field that no format gives
// fits only where the rule asks for nothing to be there, so it is decided before any event comes,
// and with it perhaps all of the condition: a rule that can't fit is not asked, and one that would
// fit every event for want of a field is not asked either, since it says nothing of the events.

namespace zel {

namespace {

using Kind = ReadyNode::Kind;

ReadyNode Decided(bool holds) {
    ReadyNode node;
    node.kind = holds ? Kind::certain : Kind::impossible;
    return node;
}

class Maker {
public:
    Maker(SourceId source, RuleVocabulary* vocabulary)
        : source_(source), vocabulary_(*vocabulary) {}

    ReadyNode Make(const RuleNode& node, std::string_view search) {
        if (!node.name.empty())
            search = node.name;
        switch (node.kind) {
            case RuleNode::Kind::field:
                return MakeField(node.test, search);
            case RuleNode::Kind::none:
                return MakeNone(node, search);
            default:
                return MakeGroup(node, search);
        }
    }

private:
    bool IsNever(FieldId field) const {
        return vocabulary_.StandingOf(source_, field) == FieldStanding::never;
    }

    ReadyNode MakeField(const FieldTest& test, std::string_view search) {
        ReadyNode ready;
        ready.kind = test.field.empty() ? Kind::anyValue : Kind::field;
        ready.search = search;
        ready.test = &test;
        ready.field = test.field.empty() ? FieldId{} : vocabulary_.AddField(test.field);
        const bool isNever = ready.kind == Kind::field && IsNever(ready.field);
        for (const ValueTest& value : test.values) {
            if (isNever && value.kind == ValueTest::Kind::isNull)
                return Decided(true);
            ValueTester tester(value);
            const FieldId other = tester.IsOfOtherField() ? vocabulary_.AddField(value.text) : 0;
            if (isNever || (tester.IsOfOtherField() && IsNever(other)))
                continue;
            ready.testers.push_back(std::move(tester));
            ready.others.push_back(other);
        }
        return ready.testers.empty() ? Decided(false) : ready;
    }

    ReadyNode MakeNone(const RuleNode& node, std::string_view search) {
        ReadyNode ready;
        ready.kind = Kind::none;
        ready.search = search;
        ready.children.push_back(Make(node.children.front(), search));
        const Kind child = ready.children.front().kind;
        if (child == Kind::certain || child == Kind::impossible)
            return Decided(child == Kind::impossible);
        return ready;
    }

    // Of `all` a child that can't hold decides, of `any` one that surely does; the others that are
    // decided say nothing.
    ReadyNode MakeGroup(const RuleNode& node, std::string_view search) {
        ReadyNode ready;
        const bool isAll = node.kind == RuleNode::Kind::all;
        ready.kind = isAll ? Kind::all : Kind::any;
        ready.search = search;
        for (const RuleNode& child : node.children) {
            ReadyNode made = Make(child, search);
            if (made.kind == (isAll ? Kind::impossible : Kind::certain))
                return Decided(!isAll);
            if (made.kind != Kind::certain && made.kind != Kind::impossible)
                ready.children.push_back(std::move(made));
        }
        return ready.children.empty() ? Decided(isAll) : ready;
    }

    SourceId source_;
    RuleVocabulary& vocabulary_;
};

bool FitsField(const ReadyNode& node, std::size_t at, RuleEvent& event) {
    const ValueTester& tester = node.testers[at];
    const auto values = event.ValuesOf(node.field);
    if (tester.IsOfPresence())
        return values.empty() == (tester.Test().kind == ValueTest::Kind::isNull);
    if (!tester.IsOfOtherField())
        return std::any_of(values.begin(), values.end(),
                           [&](std::string_view value) { return tester.Fits(value); });
    const auto others = event.ValuesOf(node.others[at]);
    return std::any_of(values.begin(), values.end(), [&](std::string_view value) {
        return std::any_of(others.begin(), others.end(),
                           [&](std::string_view other) { return tester.FitsOther(value, other); });
    });
}

bool FitsTester(const ReadyNode& node, std::size_t at, RuleEvent& event) {
    if (node.kind == Kind::field)
        return FitsField(node, at, event);
    return event.AnyValue([&](std::string_view value) { return node.testers[at].Fits(value); });
}

// Of a field test that fits: which of its testers; else their number.
std::size_t FittingTester(const ReadyNode& node, RuleEvent& event) {
    std::size_t at = 0;
    while (at < node.testers.size() && !FitsTester(node, at, event))
        ++at;
    return at;
}

bool FitsNode(const ReadyNode& node, RuleEvent& event) {
    const auto fits = [&](const ReadyNode& child) { return FitsNode(child, event); };
    switch (node.kind) {
        case Kind::all:
            return std::all_of(node.children.begin(), node.children.end(), fits);
        case Kind::any:
            return std::any_of(node.children.begin(), node.children.end(), fits);
        case Kind::none:
            return !fits(node.children.front());
        case Kind::field:
            return FittingTester(node, event) < node.testers.size();
        case Kind::anyValue:  // one look at the values for all testers
            return event.AnyValue([&](std::string_view value) {
                return std::any_of(node.testers.begin(), node.testers.end(),
                                   [&](const ValueTester& tester) { return tester.Fits(value); });
            });
        default:
            return node.kind == Kind::certain;
    }
}

void AddOnce(std::string text, std::vector<std::string>* texts) {
    if (std::find(texts->begin(), texts->end(), text) == texts->end())
        texts->push_back(std::move(text));
}

void AddReasons(const ReadyNode& node, RuleEvent& event, std::vector<std::string>* reasons) {
    if (node.kind == Kind::all || node.kind == Kind::any) {
        for (const ReadyNode& child : node.children) {
            if (node.kind == Kind::all || FitsNode(child, event))
                AddReasons(child, event, reasons);
        }
        return;
    }
    if (node.kind != Kind::field && node.kind != Kind::anyValue)
        return;
    const std::size_t fitting = FittingTester(node, event);
    if (fitting == node.testers.size())
        return;
    std::string reason(node.search);
    reason.append(reason.empty() ? "" : ": ");
    reason.append(node.kind == Kind::field ? node.test->field : "a value");
    AddOnce(reason.append(" ").append(node.testers[fitting].Words()), reasons);
}

// Calls with the names of all fields that the condition asks for; empty for any value.
template <typename Take>
void EachField(const RuleNode& node, const Take& take) {
    for (const RuleNode& child : node.children)
        EachField(child, take);
    if (node.kind != RuleNode::Kind::field)
        return;
    take(node.test.field);
    for (const ValueTest& value : node.test.values) {
        if (ValueTester(value).IsOfOtherField())
            take(value.text);
    }
}

std::string JoinedNames(const std::vector<std::string>& names) {
    std::string joined;
    for (const std::string& name : names)
        joined.append(joined.empty() ? "" : ", ").append(name);
    return joined;
}

}  // namespace

ReadyRule::ReadyRule(const Rule& rule, RuleVocabulary* vocabulary) {
    if (rule.counts != nullptr) {
        reach_.kind = RuleReach::Kind::none;
        return;
    }
    if (!vocabulary->AddSource(rule.source, &source_, &reach_.reason)) {
        reach_.kind = RuleReach::Kind::none;
        return;
    }
    condition_ = Maker(source_, vocabulary).Make(rule.condition, {});
    std::set<std::string_view> told;
    EachField(rule.condition, [&](const std::string& name) {
        if (!told.insert(name).second)
            return;
        const FieldId field = name.empty() ? FieldId{} : vocabulary->AddField(name);
        if (name.empty()) {
            reach_.byText.emplace_back("any value");
            return;
        }
        const FieldStanding standing = vocabulary->StandingOf(source_, field);
        if (standing == FieldStanding::never)
            reach_.never.push_back(name);
        else
            (standing == FieldStanding::key ? reach_.byKey : reach_.byText)
                .push_back(name + " (" + vocabulary->PlaceOf(source_, field) + ")");
    });
    const bool isDecided = condition_.kind == Kind::impossible || condition_.kind == Kind::certain;
    if (isDecided && !reach_.never.empty()) {
        reach_.kind = RuleReach::Kind::none;
        reach_.reason = "no format gives " + JoinedNames(reach_.never) +
                        (condition_.kind == Kind::impossible ? ", without which it can't fit"
                                                             : ", and nothing else decides it");
    } else if (!reach_.never.empty()) {
        reach_.kind = RuleReach::Kind::partly;
    }
}

bool ReadyRule::Fits(RuleEvent& event) const {
    return event.IsOf(source_) && FitsNode(condition_, event);
}

std::vector<std::string> ReadyRule::WhyOf(RuleEvent& event) const {
    std::vector<std::string> reasons;
    AddReasons(condition_, event, &reasons);
    if (reasons.empty())
        reasons.emplace_back("nothing that it leaves out");
    return reasons;
}

}  // namespace zel
