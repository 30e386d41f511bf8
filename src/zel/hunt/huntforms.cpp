#include "zel/hunt/huntforms.h"

#include <algorithm>

#include "common/jsontext.h"
#include "hunt/hittexts.h"
#include "zel/results/fieldforms.h"
#include "zel/terminal/textfit.h"

// A hit is a rule and an event. JSON gives both whole; rows give what a person asks first, a file
// of columns in addition all columns of the event.

namespace zel {

namespace {

using Kind = FieldValue::Kind;

class JsonHits final : public HitForm {
public:
    JsonHits(bool isArray, bool isForTerminal) : isArray_(isArray), isForTerminal_(isForTerminal) {}

    std::string Hit(const Rule& rule, const FoundEvent& event,
                    const std::vector<std::string>& why) override {
        std::string json = HitJson(rule, event.text, why);
        if (!event.host.empty())
            json.insert(1, "\"host\":" + wm::JsonString(event.host) + ",");
        return Framed(json);
    }

    std::string Counted(const Rule& rule, const CorrelationHit& hit) override {
        return Framed(CountedHitJson(rule, hit));
    }

    std::string End() override { return !isArray_ ? "" : isFirst_ ? "[]\n" : "\n]\n"; }

private:
    std::string Framed(const std::string& text) {
        const std::string shown = isForTerminal_ ? EscapedJson(text) : text;
        const bool wasFirst = isFirst_;
        isFirst_ = false;
        return isArray_ ? (wasFirst ? "[\n" : ",\n") + shown : shown + "\n";
    }

    const bool isArray_, isForTerminal_;
    bool isFirst_ = true;
};

Field TextField(const char* name) {
    return {name, nullptr, {}, ColumnType::text};
}

Field ColumnField(const char* name) {
    const Column* const column = FindColumn(name);
    return {name, column, {}, column->type};
}

FieldValue TextValue(std::string text) {
    return {text.empty() ? Kind::none : Kind::text, std::move(text)};
}

std::string Joined(const std::vector<std::string>& texts, const char* between) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : between) + text;
    return all;
}

// "User=alice", for each name of the group.
std::string GroupOf(const Rule& rule, const CorrelationHit& hit) {
    std::vector<std::string> pairs;
    for (std::size_t i = 0; i < hit.group.size() && i < rule.counts->groupBy.size(); ++i)
        pairs.push_back(rule.counts->groupBy[i] + "=" + hit.group[i]);
    return Joined(pairs, ", ");
}

// Hits as rows of one form: `event` reads of an event what stands in them.
class RowHits : public HitForm {
public:
    std::string End() override { return rows_->End(isFirst_); }

protected:
    RowHits(const std::vector<Field>& event, FormChoice choice, std::vector<Field> columns)
        : reader_(event, choice.zone),
          rows_(MakeRowForm(WithColumns(std::move(choice), std::move(columns)))) {}

    std::string Row(const std::vector<FieldValue>& values) {
        const bool wasFirst = isFirst_;
        isFirst_ = false;
        return rows_->Row(values, wasFirst);
    }

    const std::vector<FieldValue>& Read(const FoundEvent& event) { return reader_.Read(event); }

    const std::vector<Field>& EventFields() const { return reader_.Fields(); }

private:
    static FormChoice WithColumns(FormChoice choice, std::vector<Field> columns) {
        choice.fields = std::move(columns);
        return choice;
    }

    FieldReader reader_;
    const std::unique_ptr<RowForm> rows_;
    bool isFirst_ = true;
};

// A computer's name begins with what tells most.
Field MachineField(const char* machine) {
    return std::string_view(machine) == "host" ? ColumnField(machine) : TextField(machine);
}

// A line of a table has room for one thing that it was done to: the first of these that is there.
constexpr const char* targets[] = {"target_cmd_line", "target_path", "target_name", "url",
                                   "dst_ip"};

class TableHits final : public RowHits {
public:
    // Of a fleet the host stands where the computer does: it is there for each event.
    explicit TableHits(const FormChoice& choice)
        : RowHits(Asked(MachineColumn(choice.hasHosts)), choice,
                  Columns(MachineColumn(choice.hasHosts))) {}

    std::string Hit(const Rule& rule, const FoundEvent& event,
                    const std::vector<std::string>&) override {
        const std::vector<FieldValue>& found = Read(event);
        const auto target =
            std::find_if(found.begin() + 2, found.end(),
                         [](const FieldValue& each) { return each.kind != Kind::none; });
        return Row({found[0], TextValue(rule.level), TextValue(rule.title), TextValue(rule.author),
                    found[1], target != found.end() ? *target : FieldValue()});
    }

    std::string Counted(const Rule& rule, const CorrelationHit& hit) override {
        return Row({TextValue(hit.last), TextValue(rule.level), TextValue(rule.title),
                    TextValue(rule.author), FieldValue(),
                    TextValue(std::to_string(hit.count) + " since " + hit.first + " " +
                              GroupOf(rule, hit))});
    }

private:
    static std::vector<Field> Asked(const char* machine) {
        std::vector<Field> fields = {ColumnField("time"), ColumnField(machine)};
        for (const char* name : targets)
            fields.push_back(ColumnField(name));
        return fields;
    }

    static std::vector<Field> Columns(const char* machine) {
        const Field of = MachineField(machine);
        // Of a path the end tells most, as in other tables.
        const Field target = {"target", FindColumn("target_path"), {}, ColumnType::text};
        return {ColumnField("time"),
                TextField("level"),
                TextField("rule"),
                TextField("author"),
                of,
                target};
    }
};

class CsvHits final : public RowHits {
public:
    explicit CsvHits(const FormChoice& choice)
        : RowHits(AllFields({choice.hasHosts}), choice, Columns(AllFields({choice.hasHosts}))) {}

    std::string Hit(const Rule& rule, const FoundEvent& event,
                    const std::vector<std::string>& why) override {
        std::vector<FieldValue> values = RuleValues(rule, Joined(why, "; "));
        const std::vector<FieldValue>& found = Read(event);
        values.insert(values.end(), found.begin(), found.end());
        return Row(values);
    }

    // Of what was counted only the time stands in a column of the event.
    std::string Counted(const Rule& rule, const CorrelationHit& hit) override {
        std::vector<FieldValue> values =
            RuleValues(rule, std::to_string(hit.count) + " since " + hit.first +
                                 (hit.group.empty() ? "" : "; " + GroupOf(rule, hit)));
        for (const Field& field : EventFields())
            values.push_back(TextValue(field.name == "time" ? hit.last : ""));
        return Row(values);
    }

private:
    static std::vector<FieldValue> RuleValues(const Rule& rule, std::string why) {
        return {TextValue(rule.level),  TextValue(rule.title),    TextValue(rule.id),
                TextValue(rule.author), TextValue(rule.status),   TextValue(Joined(rule.tags, " ")),
                TextValue(rule.file),   TextValue(std::move(why))};
    }

    static std::vector<Field> Columns(const std::vector<Field>& events) {
        std::vector<Field> columns = {
            TextField("level"),  TextField("rule"), TextField("rule_id"), TextField("author"),
            TextField("status"), TextField("tags"), TextField("file"),    TextField("why")};
        columns.insert(columns.end(), events.begin(), events.end());
        return columns;
    }
};

}  // namespace

const char* MachineColumn(bool hasHosts) {
    return hasHosts ? "host" : "computer";
}

std::unique_ptr<HitForm> MakeHitForm(const FormChoice& choice) {
    if (choice.name == "table")
        return std::make_unique<TableHits>(choice);
    if (choice.name == "csv")
        return std::make_unique<CsvHits>(choice);
    return std::make_unique<JsonHits>(choice.name == "json", choice.isForTerminal);
}

std::vector<Field> SummaryFields(bool isTable, bool hasHosts) {
    std::vector<Field> fields = {TextField("level"),
                                 {"hits", nullptr, {}, ColumnType::number},
                                 TextField("rule"),
                                 TextField("author"),
                                 TextField(MachineColumn(hasHosts)),
                                 {"last", nullptr, {}, ColumnType::time}};
    if (!isTable)
        fields.insert(fields.end(),
                      {{"first", nullptr, {}, ColumnType::time}, TextField("rule_id")});
    return fields;
}

}  // namespace zel
