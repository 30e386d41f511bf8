#include "hunt/correlationreader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <optional>
#include <utility>

namespace zel {

namespace {

using Kind = Correlation::Kind;
using Comparison = Correlation::Comparison;

constexpr std::array<std::pair<std::string_view, Kind>, 4> kinds = {
    {{"event_count", Kind::eventCount},
     {"value_count", Kind::valueCount},
     {"temporal", Kind::temporal},
     {"temporal_ordered", Kind::temporalOrdered}}};
constexpr std::array<std::pair<std::string_view, Comparison>, 6> comparisons = {
    {{"lt", Comparison::less},
     {"lte", Comparison::atMost},
     {"gt", Comparison::greater},
     {"gte", Comparison::atLeast},
     {"eq", Comparison::equals},
     {"neq", Comparison::differs}}};
constexpr std::array<std::pair<std::string_view, std::uint64_t>, 4> units = {
    {{"s", 1}, {"m", 60}, {"h", 3'600}, {"d", 86'400}}};
constexpr std::uint64_t mostDays = 3'660;

template <typename Table>
const typename Table::value_type* FindIn(const Table& table, std::string_view name) {
    const auto found = std::find_if(table.begin(), table.end(),
                                    [&](const auto& row) { return row.first == name; });
    return found == table.end() ? nullptr : &*found;
}

std::optional<std::uint64_t> NumberOf(std::string_view text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    const bool isAll = !text.empty() && parsed.ec == std::errc() && parsed.ptr == end;
    return isAll ? std::optional(number) : std::nullopt;
}

bool ReadKind(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    const auto* const known = FindIn(kinds, node.text);
    if (known == nullptr)
        return RefuseAt(node, "unknown type of correlation \"" + node.text + "\"", problem);
    counts->kind = known->second;
    return true;
}

bool ReadRules(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    if (!TextsOf(node, "rules", &counts->rules, problem))
        return false;
    return !counts->rules.empty() || RefuseAt(node, "\"rules\" names no rule", problem);
}

bool ReadGroupBy(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    return TextsOf(node, "group-by", &counts->groupBy, problem);
}

bool ReadTimespan(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    const std::string_view text = node.text;
    const auto* const unit = text.empty() ? nullptr : FindIn(units, text.substr(text.size() - 1));
    const auto number = unit == nullptr ? std::nullopt : NumberOf(text.substr(0, text.size() - 1));
    if (!number || *number == 0)
        return RefuseAt(node, "a timespan such as 30s, 5m, 1h or 7d is expected", problem);
    if (*number > mostDays * 86'400 / unit->second)
        return RefuseAt(node, "a timespan of more than ten years", problem);
    counts->timespan = std::chrono::seconds(*number * unit->second);
    return true;
}

bool ReadCountedField(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    std::vector<std::string> fields;
    if (!TextsOf(node, "field", &fields, problem))
        return false;
    if (fields.size() != 1 || fields.front().empty())
        return RefuseAt(node, "\"field\" has to name one field", problem);
    counts->countedField = std::move(fields.front());
    return true;
}

bool ReadCondition(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    if (node.kind != YamlNode::Kind::map)
        return RefuseAt(node, "the condition of a correlation has to be a map such as \"gte: 10\"",
                        problem);
    for (const auto& [key, value] : node.entries) {
        const auto* const known = FindIn(comparisons, key->text);
        const auto number = NumberOf(value->text);
        if (key->text == "field") {
            if (!ReadCountedField(*value, counts, problem))
                return false;
        } else if (known == nullptr) {
            return RefuseAt(*key, "unknown comparison \"" + key->text + "\"", problem);
        } else if (!number) {
            return RefuseAt(*value, "a whole number is expected", problem);
        } else {
            counts->bounds.push_back({known->second, *number});
        }
    }
    return true;
}

bool ReadAliases(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    if (node.kind != YamlNode::Kind::map)
        return RefuseAt(node, "\"aliases\" has to be a map", problem);
    for (const auto& [name, rules] : node.entries) {
        if (rules->kind != YamlNode::Kind::map)
            return RefuseAt(*rules, "an alias has to be a map from rules to fields", problem);
        for (const auto& [rule, field] : rules->entries) {
            if (field->kind != YamlNode::Kind::text || field->text.empty())
                return RefuseAt(*field, "the name of a field is expected", problem);
            counts->aliases.push_back({name->text, rule->text, field->text});
        }
    }
    return true;
}

bool ReadGenerate(const YamlNode& node, Correlation* counts, RuleProblem* problem) {
    counts->generate = node.text == "true";
    return counts->generate || node.text == "false" ||
           RefuseAt(node, "\"generate\" is either true or false", problem);
}

struct Part {
    std::string_view name;
    bool isNeeded;
    bool (*read)(const YamlNode& node, Correlation* counts, RuleProblem* problem);
};
constexpr std::array parts = {
    Part{"type", true, ReadKind},          Part{"rules", true, ReadRules},
    Part{"timespan", true, ReadTimespan},  Part{"group-by", false, ReadGroupBy},
    Part{"aliases", false, ReadAliases},   Part{"condition", false, ReadCondition},
    Part{"generate", false, ReadGenerate},
};

const Part* PartOf(std::string_view name) {
    const auto* const part = std::find_if(parts.begin(), parts.end(),
                                          [&](const Part& known) { return known.name == name; });
    return part == parts.end() ? nullptr : part;
}

bool IsWhole(const YamlNode& node, const Correlation& counts, RuleProblem* problem) {
    for (const Part& part : parts) {
        if (part.isNeeded && node.Find(part.name) == nullptr)
            return RefuseAt(node, "the correlation has no \"" + std::string(part.name) + "\"",
                            problem);
    }
    const bool isCount = counts.kind == Kind::eventCount || counts.kind == Kind::valueCount;
    if (isCount && counts.bounds.empty())
        return RefuseAt(node, "the correlation has no condition such as \"gte: 10\"", problem);
    if ((counts.kind == Kind::valueCount) == counts.countedField.empty())
        return RefuseAt(node, "\"field\" in the condition belongs to value_count, which needs it",
                        problem);
    return true;
}

}  // namespace

std::shared_ptr<const Correlation> ReadCorrelation(const YamlNode& node, RuleProblem* problem) {
    auto counts = std::make_shared<Correlation>();
    if (node.kind != YamlNode::Kind::map) {
        RefuseAt(node, "\"correlation\" has to be a map", problem);
        return nullptr;
    }
    for (const auto& [key, value] : node.entries) {
        const Part* const part = PartOf(key->text);
        if (part == nullptr) {
            RefuseAt(*key, "unknown key \"" + key->text + "\" in the correlation", problem);
            return nullptr;
        }
        if (!part->read(*value, counts.get(), problem))
            return nullptr;
    }
    return IsWhole(node, *counts, problem) ? counts : nullptr;
}

}  // namespace zel
