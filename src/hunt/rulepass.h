#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "hunt/literalpass.h"
#include "hunt/readyrule.h"

namespace zel {

// Finds by one pass over an event's text the few rules that may fit it. Any thread, each with a
// Memory of its own.
class RulePass {
public:
    // Of the rules those that can fit; the others are never found. Keeps nothing of them.
    RulePass(const std::vector<ReadyRule>& rules, const RuleVocabulary& vocabulary);

    // Must not outlive its pass.
    class Memory {
    public:
        explicit Memory(const RulePass& pass);

    private:
        friend class RulePass;
        struct Rule {
            std::uint64_t event = 0;
            std::uint32_t clauses = 0;  // that hold of this event
        };
        LiteralPass::Scratch scratch_;
        std::vector<std::uint32_t> found_;
        std::uint64_t event_ = 0;              // counts them
        std::vector<std::uint64_t> literals_;  // the last event that each stood in
        std::vector<Rule> rules_;
    };

    // The numbers of the rules, ascending: every rule that fits the event is among them.
    void Find(std::string_view event, Memory& memory, std::vector<std::uint32_t>* rules) const;
    const std::vector<std::uint32_t>& AllThatCanFit() const noexcept { return canFit_; }

private:
    // Numbers of literals, of which one must stand in the event; all of these must hold.
    using Needs = std::vector<std::vector<std::uint32_t>>;
    struct Source {
        std::vector<Needs> alternatives;    // none: nothing is certain
        std::vector<std::uint32_t> always;  // rules without literals
    };
    struct Use {
        std::uint32_t rule, clause;  // as a bit
    };
    class Making;

    bool MayBeOf(const Source& source, const Memory& memory) const;

    std::vector<std::string> literals_;
    std::vector<std::vector<Use>> uses_;   // of each literal
    std::vector<std::uint32_t> clauses_;   // of each rule: the bits of all its clauses
    std::vector<std::uint32_t> sourceOf_;  // of each rule, in sources_
    std::vector<Source> sources_;
    std::vector<std::uint32_t> canFit_;
    std::vector<std::uint32_t> doubtful_;  // literals with which the text tells nothing
    LiteralPass pass_;
};

}  // namespace zel
