#include "zel/hunt/huntsummary.h"

#include <algorithm>
#include <tuple>

#include "hunt/rulefiles.h"
#include "zel/hunt/huntforms.h"
#include "zel/results/fieldforms.h"

namespace zel {

void HuntSummary::Add(std::size_t rule, std::string_view computer, std::string_view time) {
    const bool hasRoom = rows_.size() < mostRows;
    Row& row = rows_[{rule, hasRoom ? std::string(computer) : std::string()}];
    ++row.hits;
    if (row.first.empty() || time < row.first)
        row.first = time;
    if (time > row.last)
        row.last = time;
}

std::string HuntSummary::Print(const std::vector<Rule>& rules, FormChoice choice) const {
    using Entry = decltype(rows_)::value_type;
    std::vector<const Entry*> sorted;
    for (const Entry& entry : rows_)
        sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(), [&](const Entry* a, const Entry* b) {
        const auto rank = [&](const Entry* each) {
            return std::tuple(-SeverityOf(rules[each->first.first].level),
                              -static_cast<std::int64_t>(each->second.hits));
        };
        return rank(a) < rank(b);
    });
    const auto text = [](std::string value) {
        const auto kind = value.empty() ? FieldValue::Kind::none : FieldValue::Kind::text;
        return FieldValue{kind, std::move(value)};
    };
    const ZoneTime zone = choice.zone;
    const bool isTable = choice.name == "table";
    choice.fields = SummaryFields(isTable, choice.hasHosts);
    const auto rows = MakeRowForm(std::move(choice));
    std::string all;
    for (const Entry* const entry : sorted) {
        const Rule& rule = rules[entry->first.first];
        const Row& row = entry->second;
        std::vector<FieldValue> values = {
            text(rule.level),          {FieldValue::Kind::number, std::to_string(row.hits)},
            text(rule.title),          text(rule.author),
            text(entry->first.second), text(zone.Shown(row.last))};
        if (!isTable)
            values.insert(values.end(), {text(zone.Shown(row.first)), text(rule.id)});
        all += rows->Row(values, entry == sorted.front());
    }
    return all + rows->End(sorted.empty());
}

}  // namespace zel
