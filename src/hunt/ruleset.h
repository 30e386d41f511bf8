#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/rule.h"
#include "hunt/ruleevent.h"

namespace zel {

// How far the store's records can decide a rule.
struct RuleReach {
    enum class Kind : std::uint8_t {
        whole,   // every field that it asks for is given
        partly,  // some are not: they are taken as missing
        none,    // it can't fit whatever comes, and is not asked
    };
    Kind kind = Kind::whole;
    std::string reason;                             // of `none`
    std::vector<std::string> byKey, byText, never;  // "Image (target_path)", for people
};

// Rules made ready to be tested together: one pass over the text of an event finds the few that may
// fit, and only these are tested in full. Any thread, once made.
class RuleSet {
public:
    // Rules of rules among them are left to the Correlator, which tells their reach; here it is
    // `none` without a reason.
    RuleSet(std::vector<Rule> rules, VocabularyOptions options);
    ~RuleSet();

    const std::vector<Rule>& Rules() const noexcept;
    const RuleReach& ReachOf(std::size_t rule) const;
    // Sub-queries that together find all events that any rule may fit, each event once; few, an
    // empty one among them stands for all events. Where there are rules of rules it is at most one,
    // so that events come in the order of time. None: no rule can fit any event.
    std::vector<Narrowing> Narrowings() const;
    const RuleVocabulary& Vocabulary() const noexcept;

    struct Tables;  // the inside, for who runs and counts

private:
    friend class RuleRun;
    friend class Correlator;
    std::unique_ptr<Tables> tables_;
};

// Tests one event after the other. For one thread; the rules must outlive it.
class RuleRun {
public:
    explicit RuleRun(const RuleSet& rules);
    ~RuleRun();

    // Finds the rules that fit, in their order; good until the next call. False when the event
    // can't be read, and then none fits; that is seen only where a rule may fit it.
    bool Test(std::string_view event);
    const std::vector<std::uint32_t>& Hits() const noexcept;
    // Of a rule that fits the event: the searches and values that made it fit, one a line:
    // "selection_img: Image ends with \fodhelper.exe".
    std::vector<std::string> WhyOf(std::uint32_t rule);
    // Of an event that a rule fits: for correlation and output.
    RuleEvent& Event() noexcept;

    // The same without the pass over the text, for tests: every rule is tested in full.
    bool TestAll(std::string_view event);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zel
