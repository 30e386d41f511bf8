#include "agent/web/countfacets.h"

#include <algorithm>
#include <functional>
#include <map>

#include "agent/web/countvalues.h"
#include "records/recordwriter.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/keysplit.h"

// Kinds that a key tells cost little more than the walk. User and computer stand in the text alone,
// which is read for them; rules in enrichments, which cost a look each.

namespace zel {

namespace {

using ZEL::KeyField;
using Kinds = std::vector<FacetKind>;
using Body = std::string;

// How a kind is known, and how its values are asked for.
struct FacetRow {
    FacetKind kind;
    std::string_view name;
    std::optional<KeyField> field;
    std::string_view parameter;  // asks for a value
    std::string_view column;     // of the condition that excludes it; empty: another parameter does
};
constexpr FacetRow rows[] = {
    {FacetKind::object, "object", KeyField::objectType, "object", "object"},
    {FacetKind::action, "action", KeyField::action, "action", "action"},
    {FacetKind::actor, "actor", KeyField::actorPathName, "actor_path", "actor_path"},
    {FacetKind::target, "target", KeyField::targetPathName, "target_path", "target_path"},
    {FacetKind::address, "address", KeyField::targetDestinationIp, "", "dst_ip"},
    {FacetKind::user, "user", std::nullopt, "user", "user"},
    {FacetKind::computer, "computer", std::nullopt, "computer", "computer"},
    {FacetKind::rule, "rule", std::nullopt, "rule", ""},
};

const FacetRow& RowOf(FacetKind kind) {
    return *std::find_if(std::begin(rows), std::end(rows),
                         [kind](const FacetRow& row) { return row.kind == kind; });
}

// What a condition would take off a value is kept by quotes.
std::string Condition(std::string_view column, std::string_view sign, const std::string& value) {
    const auto isBare = [](char c) { return c != ' ' && c != '"' && c != '\''; };
    const bool needsQuotes = value.empty() || !isBare(value.front()) || !isBare(value.back());
    const std::string quote = needsQuotes ? "\"" : "";
    return std::string(column).append(" ").append(sign).append(" ").append(quote + value + quote);
}

// The flags for paths take signs for any characters, which a value may hold as well.
bool IsPlain(FacetKind kind, const std::string& value) {
    const bool isPath = kind == FacetKind::actor || kind == FacetKind::target;
    return !isPath || value.find_first_of("*?%") == value.npos;
}

void WriteParameter(RecordWriter& writer, std::string_view name, std::string_view value) {
    writer.BeginArray().Text(name).Text(value).EndArray();
}

class Facets {
public:
    Facets(const FacetsAsk& ask, const EventQuestion& question)
        : ask_(ask), question_(question), counts_(ask.kinds.size()) {
        for (const FacetKind kind : ask.kinds)
            isOfKey_ = isOfKey_ && RowOf(kind).field;
    }

    void Add(const ZEL::QueryRow& row, const EventKeyHead& head) {
        ++total_;
        ZEL::SplitKeyFields(row.key, &fields_);
        const bool isRead = !isOfKey_ && reader_.Read(row.text);
        for (std::size_t i = 0; i < counts_.size(); ++i)
            AddOne(ask_.kinds[i], counts_[i], row, head, isRead);
    }
    void Write(RecordWriter& writer) const;
    void Show(ShownValues& seen) const;
    std::uint64_t Total() const noexcept { return total_; }

private:
    void AddOne(FacetKind kind, ValueCounts& counts, const ZEL::QueryRow& row,
                const EventKeyHead& head, bool isRead);
    std::optional<std::string_view> KeyValue(KeyField field) const {
        std::string_view value;
        const bool isThere = Succeeded(ZEL::GetKeyField(fields_, ZEL::KeyFieldName(field), &value));
        return isThere ? std::optional(value) : std::nullopt;
    }
    void AddRules(ValueCounts& counts, std::string_view enrichments);
    void WriteValue(FacetKind kind, const ValueCounts::Counted& value, RecordWriter& writer) const;

    const FacetsAsk& ask_;
    const EventQuestion& question_;
    std::vector<ValueCounts> counts_;
    bool isOfKey_ = true;
    ZEL::KeyFields fields_;
    RecordReader reader_;
    std::map<std::string, std::string> titles_;  // of rules, by their names
    std::uint64_t total_ = 0;
};

void Facets::AddOne(FacetKind kind, ValueCounts& counts, const ZEL::QueryRow& row,
                    const EventKeyHead& head, bool isRead) {
    static const Column *const user = FindColumn("user"), *const computer = FindColumn("computer"),
                               *const actor = FindColumn("actor_path"),
                               *const target = FindColumn("target_path");
    if (kind == FacetKind::rule)
        return AddRules(counts, row.enrichments);
    std::optional<std::string_view> value;
    if (kind == FacetKind::object)
        value = head.object;
    else if (kind == FacetKind::action)
        value = head.action;
    else if (kind == FacetKind::target && head.object == "kernel_object")
        return;  // the key has its name in the path's place
    else if (const auto field = RowOf(kind).field)
        value = KeyValue(*field);
    else if (isRead)
        value = reader_.Value(kind == FacetKind::user ? *user : *computer);
    // A key has signs of patterns in place of ? and * (keymaker.cpp).
    const bool isPath = kind == FacetKind::actor || kind == FacetKind::target;
    if (isPath && value && value->find(".{") != value->npos && (isRead || reader_.Read(row.text)))
        value = reader_.Value(kind == FacetKind::actor ? *actor : *target);
    if (value && !value->empty())
        counts.Add(*value);
}

void Facets::AddRules(ValueCounts& counts, std::string_view enrichments) {
    constexpr std::size_t mostTitles = 10000;
    std::vector<std::string> known;  // a rule is one for an event, however many marks it has
    for (const RuleMark& mark : RuleMarksIn(enrichments)) {
        if (std::find(known.begin(), known.end(), mark.Name()) != known.end())
            continue;
        known.push_back(mark.Name());
        counts.Add(mark.Name());
        if (titles_.size() < mostTitles)
            titles_.emplace(mark.Name(), mark.title);
    }
}

void Facets::WriteValue(FacetKind kind, const ValueCounts::Counted& value,
                        RecordWriter& writer) const {
    const FacetRow& row = RowOf(kind);
    const auto title = titles_.find(value.value);
    writer.BeginObject().Key("value").Text(
        kind == FacetKind::rule && title != titles_.end() ? title->second : value.value);
    writer.Key("count").Number(value.count).Key("parameter");
    const bool isOther = !row.column.empty() && question_.AsksOther(row.parameter, value.value);
    if (row.parameter.empty() || isOther || !IsPlain(kind, value.value))
        WriteParameter(writer, "where", Condition(row.column, "=", value.value));
    else
        WriteParameter(writer, row.parameter, value.value);
    writer.Key("exclude");
    if (row.column.empty())
        WriteParameter(writer, "without_rule", value.value);
    else
        WriteParameter(writer, "where", Condition(row.column, "!=", value.value));
    writer.EndObject();
}

void Facets::Write(RecordWriter& writer) const {
    writer.BeginObject();
    for (std::size_t i = 0; i < counts_.size(); ++i) {
        std::uint64_t others = 0;
        const FacetKind kind = ask_.kinds[i];
        writer.Key(RowOf(kind).name).BeginObject().Key("values").BeginArray();
        for (const ValueCounts::Counted& value : counts_[i].Most(ask_.most, &others))
            WriteValue(kind, value, writer);
        writer.EndArray().Key("others").Number(others).EndObject();
    }
    writer.EndObject();
}

void Facets::Show(ShownValues& seen) const {
    constexpr std::size_t most = 200;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
        std::vector<std::string> values;
        std::uint64_t others = 0;
        for (ValueCounts::Counted& value : counts_[i].Most(most, &others))
            values.push_back(std::move(value.value));
        const FacetRow& row = RowOf(ask_.kinds[i]);
        seen.Put(row.column.empty() ? row.name : row.column, std::move(values));
    }
}

std::string NameOf(const EventQuestion& question, const FacetsAsk& ask) {
    std::string name = "facets " + std::to_string(ask.most) + " ";
    for (const FacetKind kind : ask.kinds)
        name.append(RowOf(kind).name).append(" ");
    return name + *question.Name();
}

}  // namespace

std::optional<Kinds> ReadFacetKinds(std::string_view list, std::string* problem) {
    Kinds kinds;
    for (std::size_t at = 0; at < list.size();) {
        const std::size_t end = std::min(list.find(',', at), list.size());
        const std::string_view name = list.substr(at, end - at);
        const auto* const found =
            std::find_if(std::begin(rows), std::end(rows),
                         [&](const FacetRow& row) { return row.name == name; });
        if (found == std::end(rows)) {
            *problem = "columns: there is no facet \"" + std::string(name.substr(0, 64)) + "\"";
            return std::nullopt;
        }
        if (std::find(kinds.begin(), kinds.end(), found->kind) == kinds.end())
            kinds.push_back(found->kind);
        at = end + 1;
    }
    for (const FacetRow& row : rows)
        if (list.empty())
            kinds.push_back(row.kind);
    return kinds;
}

void AnswerFacets(QuestionWork& work, const CountContext& context, EventQuestion question,
                  const FacetsAsk& ask) {
    if (std::find(ask.kinds.begin(), ask.kinds.end(), FacetKind::rule) != ask.kinds.end())
        question.ReadEnrichments();
    const std::string name = question.Name() ? NameOf(question, ask) : "";
    if (const auto known = name.empty() ? nullptr : context.cache.Find(name, context.changes)) {
        work.Write(*static_cast<const Body*>(known.get()));
        return;
    }
    const std::string mark = context.changes.Mark();
    Facets facets(ask, question);
    const ZEL::HRESULT result =
        question.WalkOnce(work, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
            facets.Add(row, head);
            return ZEL::hr::ok;
        });
    facets.Show(context.seen);
    const bool isComplete = Succeeded(result) && !work.IsOver() && work.NotRead() == "[]";
    auto body = std::make_shared<Body>();
    RecordWriter writer(body.get());
    writer.BeginObject().Key("facets");
    facets.Write(writer);
    writer.Key("total").Number(facets.Total());
    writer.Key("complete").Json(isComplete ? "true" : "false").EndObject();
    *body += '\n';
    if (isComplete && !name.empty())
        context.cache.Keep(name,
                           {mark, question.Range(), question.HasEnrichments(), body, body->size()});
    work.Write(*body);
}

}  // namespace zel
