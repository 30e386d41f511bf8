#include "hunt/rulepass.h"

#include <algorithm>
#include <unordered_map>

#include "common/asciicase.h"
#include "hunt/literalclauses.h"

// What a rule needs of an event's text, and what its source needs, are literals of one list, so
// that one search answers for all rules. A rule may fit where one literal of each of its clauses
// stands in the text, and where the text may be an event of its source.
//
// Literals are written as JSON is usually written. A text that escapes more than it must, or in
// another way, tells nothing, and all rules may fit it. So does one with a character that becomes
// an ASCII letter in another case, which regular expressions mind and literals don't.

namespace zel {

namespace {

// The Kelvin sign and the long s.
constexpr std::string_view asciiInOtherCase[] = {"\xE2\x84\xAA", "\xC5\xBF"};

// Control characters alone stand in no literal, so the way they are written does not matter.
bool IsUsualEscape(std::string_view escape) {
    if (escape.size() < 2)
        return false;
    if (escape[1] == 'u')
        return escape.substr(2, 3) == "000" || escape.substr(2, 3) == "001";
    return std::string_view("\\\"bfnrt").find(escape[1]) != std::string_view::npos;
}

bool HasUnusualEscapes(std::string_view event) {
    for (std::size_t at = event.find('\\'); at != event.npos; at = event.find('\\', at + 2)) {
        if (!IsUsualEscape(event.substr(at)))
            return true;
    }
    return false;
}

}  // namespace

class RulePass::Making {
public:
    explicit Making(RulePass* pass) : pass_(*pass) {}

    std::uint32_t Literal(std::string text) {
        ZEL::MakeUpperAscii(text);
        const auto [known, isNew] =
            numbers_.emplace(text, static_cast<std::uint32_t>(pass_.literals_.size()));
        if (isNew) {
            pass_.literals_.push_back(std::move(text));
            pass_.uses_.emplace_back();
        }
        return known->second;
    }

    std::uint32_t Source(SourceId id, const RuleVocabulary& vocabulary) {
        const auto [known, isNew] =
            sources_.emplace(id, static_cast<std::uint32_t>(pass_.sources_.size()));
        if (isNew) {
            pass_.sources_.emplace_back();
            for (const auto& all : ClausesOf(id, vocabulary)) {
                Needs needs;
                for (const LiteralClause& clause : all) {
                    needs.emplace_back();
                    for (const std::string& text : clause.texts)
                        needs.back().push_back(Literal(text));
                }
                pass_.sources_.back().alternatives.push_back(std::move(needs));
            }
        }
        return known->second;
    }

    void Add(std::uint32_t number, const ReadyRule& rule, const RuleVocabulary& vocabulary) {
        const std::uint32_t source = Source(rule.Source(), vocabulary);
        pass_.sourceOf_[number] = source;
        std::uint32_t bit = 1;
        for (const auto& clause : ClausesOf(rule.Condition(), rule.Source(), vocabulary)) {
            for (const std::string& text : clause.texts)
                pass_.uses_[Literal(text)].push_back({number, bit});
            pass_.clauses_[number] |= bit;
            bit <<= 1;
        }
        if (pass_.clauses_[number] == 0)
            pass_.sources_[source].always.push_back(number);
        pass_.canFit_.push_back(number);
    }

    const std::vector<std::string>& Finish() {
        for (const std::string_view text : asciiInOtherCase)
            pass_.doubtful_.push_back(Literal(std::string(text)));
        return pass_.literals_;
    }

private:
    RulePass& pass_;
    std::unordered_map<std::string, std::uint32_t> numbers_;
    std::unordered_map<SourceId, std::uint32_t> sources_;
};

RulePass::RulePass(const std::vector<ReadyRule>& rules, const RuleVocabulary& vocabulary)
    : clauses_(rules.size()), sourceOf_(rules.size()), pass_([&] {
          Making making(this);
          for (std::uint32_t number = 0; number < rules.size(); ++number) {
              if (rules[number].Reach().kind != RuleReach::Kind::none)
                  making.Add(number, rules[number], vocabulary);
          }
          return making.Finish();
      }()) {}

RulePass::Memory::Memory(const RulePass& pass)
    : scratch_(pass.pass_), literals_(pass.literals_.size()), rules_(pass.clauses_.size()) {}

bool RulePass::MayBeOf(const Source& source, const Memory& memory) const {
    const auto stands = [&](std::uint32_t literal) {
        return memory.literals_[literal] == memory.event_;
    };
    const auto fits = [&](const Needs& needs) {
        return std::all_of(needs.begin(), needs.end(), [&](const auto& clause) {
            return std::any_of(clause.begin(), clause.end(), stands);
        });
    };
    return source.alternatives.empty() ||
           std::any_of(source.alternatives.begin(), source.alternatives.end(), fits);
}

void RulePass::Find(std::string_view event, Memory& memory,
                    std::vector<std::uint32_t>* rules) const {
    rules->clear();
    memory.found_.clear();
    ++memory.event_;
    if (HasUnusualEscapes(event) || !pass_.Find(event, memory.scratch_, &memory.found_)) {
        *rules = canFit_;
        return;
    }
    for (const std::uint32_t literal : memory.found_) {
        memory.literals_[literal] = memory.event_;
        for (const Use& use : uses_[literal]) {
            Memory::Rule& rule = memory.rules_[use.rule];
            const std::uint32_t before = rule.event == memory.event_ ? rule.clauses : 0;
            rule = {memory.event_, before | use.clause};
            if (rule.clauses == clauses_[use.rule] && before != rule.clauses)
                rules->push_back(use.rule);
        }
    }
    if (std::any_of(doubtful_.begin(), doubtful_.end(), [&](std::uint32_t literal) {
            return memory.literals_[literal] == memory.event_;
        })) {
        *rules = canFit_;
        return;
    }
    std::erase_if(*rules,
                  [&](std::uint32_t rule) { return !MayBeOf(sources_[sourceOf_[rule]], memory); });
    for (const Source& source : sources_) {
        if (!source.always.empty() && MayBeOf(source, memory))
            rules->insert(rules->end(), source.always.begin(), source.always.end());
    }
    std::sort(rules->begin(), rules->end());
}

}  // namespace zel
