#include "zel/results/fieldforms.h"

#include <algorithm>

#include "records/recordwriter.h"
#include "zel/results/tablerow.h"
#include "zel/terminal/textfit.h"

// Cells of a file that people open in a spreadsheet were written by strangers: a command line that
// begins with = would be run there as a formula. So such a cell begins with an apostrophe, which a
// spreadsheet takes for the mark of a text.

namespace zel {

namespace {

using Kind = FieldValue::Kind;

void WriteValue(const FieldValue& value, RecordWriter& writer) {
    if (value.kind == Kind::text)
        writer.Text(value.text);
    else
        writer.Json(value.kind == Kind::none ? "null" : value.text);
}

std::string ObjectOf(const std::vector<Field>& fields, const std::vector<FieldValue>& values) {
    std::string text;
    RecordWriter writer(&text);
    writer.BeginObject();
    for (std::size_t i = 0; i < fields.size(); ++i) {
        writer.Key(fields[i].name);
        WriteValue(values[i], writer);
    }
    writer.EndObject();
    return text;
}

class CsvRows final : public RowForm {
public:
    explicit CsvRows(FormChoice choice)
        : fields_(std::move(choice.fields)), isForTerminal_(choice.isForTerminal) {}

    std::string Row(const std::vector<FieldValue>& values, bool isFirst) override {
        std::string text = isFirst ? Heading() : "";
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i != 0)
                text += ',';
            if (isForTerminal_)
                AppendCsvCell({values[i].kind, Escaped(values[i].text)}, &text);
            else
                AppendCsvCell(values[i], &text);
        }
        return text.append("\r\n");
    }
    std::string End(bool isEmpty) override { return isEmpty ? Heading() : ""; }

private:
    std::string Heading() const {
        std::string text;
        for (const Field& field : fields_) {
            if (!text.empty())
                text += ',';
            AppendCsvCell({Kind::text, field.name}, &text);
        }
        return text.append("\r\n");
    }

    const std::vector<Field> fields_;
    const bool isForTerminal_;
};

class JsonRows final : public RowForm {
public:
    explicit JsonRows(FormChoice choice)
        : fields_(std::move(choice.fields)),
          isArray_(choice.name == "json"),
          isForTerminal_(choice.isForTerminal) {}

    std::string Row(const std::vector<FieldValue>& values, bool isFirst) override {
        std::string object = ObjectOf(fields_, values);
        if (isForTerminal_)
            object = EscapedJson(object);
        return isArray_ ? (isFirst ? "[\n" : ",\n") + object : object + "\n";
    }
    std::string End(bool isEmpty) override { return !isArray_ ? "" : isEmpty ? "[]\n" : "\n]\n"; }

private:
    const std::vector<Field> fields_;
    const bool isArray_;
    const bool isForTerminal_;
};

// What is known of a column's values gives it a width of its own; the others share what is left.
class TableRows final : public RowForm {
public:
    explicit TableRows(const FormChoice& choice) : layout_(choice.columns) {
        for (const Field& field : choice.fields) {
            headings_.push_back(field.name);
            std::transform(field.name.begin(), field.name.end(), headings_.back().begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; });
            layout_.Add(WidthOf(field, choice.zone),
                        field.column != nullptr && field.type == ColumnType::text ? Keep::end
                                                                                  : Keep::start);
        }
        layout_.Settle();
    }

    std::string Row(const std::vector<FieldValue>& values, bool isFirst) override {
        std::vector<std::string_view> cells;
        cells.reserve(values.size());
        for (const FieldValue& value : values)
            cells.push_back(value.text);
        return (isFirst ? layout_.Line({headings_.begin(), headings_.end()}) : "") +
               layout_.Line(cells);
    }
    std::string End(bool) override { return ""; }

private:
    static std::size_t WidthOf(const Field& field, const ZoneTime& zone) {
        if (field.type == ColumnType::time)
            return zone.IsUtc() ? 24 : 29;
        if (field.type == ColumnType::number)
            return std::max<std::size_t>(10, field.name.size());
        if (field.IsHost())
            return ResultForm::hostWidth;
        return field.name == "object" || field.name == "level" ? 13
               : field.name == "action"                        ? 9
                                                               : TableRow::shared;
    }

    TableRow layout_;
    std::vector<std::string> headings_;
};

class FieldForm final : public ResultForm {
public:
    FieldForm(std::unique_ptr<RowForm> rows, std::vector<Field> fields, const ZoneTime& zone)
        : rows_(std::move(rows)), reader_(std::move(fields), zone) {}

    std::string Row(const FoundEvent& event, bool isFirst) override {
        return rows_->Row(reader_.Read(event), isFirst);
    }
    std::string End(bool isEmpty) override { return rows_->End(isEmpty); }

private:
    const std::unique_ptr<RowForm> rows_;
    FieldReader reader_;
};

// A timeline shows the message alone until one looks closer, so it tells what a person would say.
class TimesketchForm final : public ResultForm {
public:
    explicit TimesketchForm(std::vector<Field> fields) : reader_(std::move(fields), ZoneTime()) {
        std::string ignored;
        told_ = ParseFields(
                    "action,object,target_path,target_name,url,src_ip,dst_ip,dst_port,"
                    "target_cmd_line,actor_path,time",
                    &ignored)
                    .value_or(std::vector<Field>());
        teller_.emplace(told_, ZoneTime());
    }

    std::string Row(const FoundEvent& event, bool) override {
        std::string text;
        RecordWriter writer(&text);
        const std::vector<FieldValue>& told = teller_->Read(event);
        writer.BeginObject().Key("message").Text(MessageOf(told, event));
        if (told.back().kind != Kind::none)
            writer.Key("datetime").Text(DateTimeOf(told.back().text));
        writer.Key("timestamp_desc").Text("event time");
        const std::vector<FieldValue>& values = reader_.Read(event);
        for (std::size_t i = 0; i < values.size(); ++i) {
            const Field& field = reader_.Fields()[i];
            if (values[i].kind == Kind::none || field.name == "time")
                continue;
            writer.Key(field.name);
            WriteValue(values[i], writer);
        }
        writer.EndObject();
        return text.append("\n");
    }

private:
    static std::string DateTimeOf(const std::string& utc) {
        return utc.ends_with('Z') ? utc.substr(0, utc.size() - 1) + "+00:00" : utc;
    }

    static std::string MessageOf(const std::vector<FieldValue>& told, const FoundEvent& event) {
        enum { action, object, path, name, url, source, destination, port, line, actor };
        if (told[action].text.empty())
            return std::string(event.text);
        std::string message = told[action].text + " " + told[object].text;
        const auto add = [&](const char* between, const FieldValue& value) {
            if (value.kind != Kind::none)
                message.append(between).append(value.text);
        };
        add(" ", told[path]);
        add(" ", told[name]);
        add(" ", told[url]);
        add(" ", told[source]);
        add(" -> ", told[destination]);
        add(":", told[port]);
        add(" by ", told[actor]);
        add(": ", told[line]);
        return message;
    }

    FieldReader reader_;
    std::vector<Field> told_;
    std::optional<FieldReader> teller_;
};

}  // namespace

void AppendCsvCell(const FieldValue& value, std::string* out) {
    const std::string& text = value.text;
    const bool isGuarded = value.kind != Kind::number && !text.empty() &&
                           std::string_view("=+-@\t\r").find(text.front()) != std::string::npos;
    const bool isQuoted = text.find_first_of(",\"\r\n") != text.npos || text.starts_with(' ') ||
                          text.ends_with(' ') || text.starts_with('\t');
    if (isQuoted)
        *out += '"';
    if (isGuarded)
        *out += '\'';
    for (const char c : text) {
        if (c == '"')
            *out += '"';
        *out += c;
    }
    if (isQuoted)
        *out += '"';
}

std::unique_ptr<RowForm> MakeRowForm(FormChoice choice) {
    if (choice.name == "csv")
        return std::make_unique<CsvRows>(std::move(choice));
    if (choice.name == "table")
        return std::make_unique<TableRows>(choice);
    return std::make_unique<JsonRows>(std::move(choice));
}

std::unique_ptr<ResultForm> MakeFieldForm(FormChoice choice) {
    auto rows = MakeRowForm(choice);
    return std::make_unique<FieldForm>(std::move(rows), std::move(choice.fields), choice.zone);
}

std::unique_ptr<ResultForm> MakeTimesketchForm(std::vector<Field> fields) {
    return std::make_unique<TimesketchForm>(std::move(fields));
}

}  // namespace zel
