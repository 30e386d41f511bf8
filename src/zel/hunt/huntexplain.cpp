#include "zel/hunt/huntexplain.h"

#include <algorithm>

#include "records/recordwriter.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

using Kind = RuleReach::Kind;

const char* NameOf(Kind kind) {
    return kind == Kind::whole ? "whole" : kind == Kind::partly ? "partly" : "not";
}

// Null: a rule of rules that can't be counted, which was told.
const RuleReach* ReachOf(const RuleSet& rules, const Correlator& counter, std::size_t rule) {
    if (!rules.Rules()[rule].counts)
        return &rules.ReachOf(rule);
    const auto number = static_cast<std::uint32_t>(rule);
    return counter.Counts(number) ? &counter.ReachOf(number) : nullptr;
}

std::string List(const char* head, const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts)
        line += (line.empty() ? std::string("    ") + head + ": " : ", ") + Escaped(text);
    return line.empty() ? line : line + "\n";
}

std::string ForPeople(const Rule& rule, const RuleReach& reach) {
    std::string text = std::string(NameOf(reach.kind)) + "  " + Escaped(rule.title) + "  (" +
                       Escaped(rule.file) + ":" + std::to_string(rule.line) + ")\n";
    if (!reach.reason.empty())
        text += "    " + Escaped(reach.reason) + "\n";
    if (rule.counts)
        return text + List("counts hits of", rule.counts->rules);
    return text + List("the key has", reach.byKey) + List("the text decides", reach.byText) +
           List("no record has", reach.never);
}

void WriteTexts(std::string_view key, const std::vector<std::string>& texts, RecordWriter& writer) {
    writer.Key(key).BeginArray();
    for (const std::string& text : texts)
        writer.Text(text);
    writer.EndArray();
}

std::string AsJson(const Rule& rule, const RuleReach& reach) {
    std::string text;
    RecordWriter writer(&text);
    writer.BeginObject().Key("file").Text(rule.file);
    writer.Key("line").Number(static_cast<std::uint64_t>(rule.line));
    writer.Key("title").Text(rule.title).Key("id").Text(rule.id);
    writer.Key("reach").Text(NameOf(reach.kind));
    if (!reach.reason.empty())
        writer.Key("reason").Text(reach.reason);
    if (rule.counts)
        WriteTexts("counts", rule.counts->rules, writer);
    WriteTexts("key", reach.byKey, writer);
    WriteTexts("text", reach.byText, writer);
    WriteTexts("never", reach.never, writer);
    writer.EndObject();
    return text;
}

}  // namespace

ReachCounts CountReach(const RuleSet& rules, const Correlator& counter) {
    ReachCounts counts;
    for (std::size_t i = 0; i < rules.Rules().size(); ++i) {
        if (const RuleReach* const reach = ReachOf(rules, counter, i))
            (reach->kind == Kind::whole    ? counts.whole
             : reach->kind == Kind::partly ? counts.partly
                                           : counts.none) += 1;
    }
    return counts;
}

std::string InWords(const ReachCounts& counts) {
    return "ran " + std::to_string(counts.whole) + " rule(s), partly " +
           std::to_string(counts.partly) + ", not " + std::to_string(counts.none);
}

void PrintReach(const RuleSet& rules, const Correlator& counter, const std::string& form,
                Output& output) {
    const bool isArray = form == "json";
    bool isFirst = true;
    for (std::size_t i = 0; i < rules.Rules().size(); ++i) {
        const Rule& rule = rules.Rules()[i];
        const RuleReach* const reach = ReachOf(rules, counter, i);
        if (reach == nullptr)
            continue;
        if (isArray)
            output.Write((isFirst ? "[\n" : ",\n") + AsJson(rule, *reach));
        else
            output.Write(form == "ndjson" ? AsJson(rule, *reach) + "\n" : ForPeople(rule, *reach));
        isFirst = false;
    }
    if (isArray)
        output.Write(isFirst ? "[]\n" : "\n]\n");
}

void TellProblems(const std::vector<RuleProblem>& problems, bool all) {
    constexpr std::size_t mostTold = 10;
    const std::size_t told = all ? problems.size() : std::min(problems.size(), mostTold);
    for (std::size_t i = 0; i < told; ++i)
        Say(InWords(problems[i]));
    if (told < problems.size())
        Say("and " + std::to_string(problems.size() - told) + " more; -v tells all");
}

}  // namespace zel
