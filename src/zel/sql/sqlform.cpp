#include "zel/sql/sqlform.h"

#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "common/textbridge.h"
#include "zel/results/fieldforms.h"
#include "zel/terminal/textfit.h"

// A statement's table is another one than that of events: its columns are whatever was asked for,
// so that only the rows tell how wide they should be.

namespace zel {

namespace {

// Bytes as SQL writes them, X'00FF'; what is no UTF-8 escaped, since no form could hold it.
std::string TextOf(sqlite3_stmt* statement, int column) {
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    const bool isText = sqlite3_column_type(statement, column) != SQLITE_BLOB;
    const std::string_view value(bytes != nullptr ? bytes : "", bytes != nullptr ? size : 0);
    if (isText)
        return wm::IsUtf8(value) ? std::string(value) : Escaped(value);
    std::string text = "X'";
    for (const char byte : value) {
        constexpr const char* digits = "0123456789ABCDEF";
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text + "'";
}

bool IsNumber(sqlite3_stmt* statement, int column) {
    const int type = sqlite3_column_type(statement, column);
    return type == SQLITE_INTEGER || type == SQLITE_FLOAT;
}

// Values as those of events' fields, in the forms that these have.
class Rows final : public SqlForm {
public:
    explicit Rows(std::string name) : name_(std::move(name)) {}

    std::string Row(sqlite3_stmt* statement) override {
        const int count = sqlite3_column_count(statement);
        std::vector<FieldValue> values;
        values.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            values.push_back(ValueOf(statement, i));
        RowForm& form = FormFor(statement);
        return form.Row(values, std::exchange(isEmpty_, false));
    }
    std::string End(sqlite3_stmt* statement) override { return FormFor(statement).End(isEmpty_); }

private:
    RowForm& FormFor(sqlite3_stmt* statement) {
        if (!form_) {
            FormChoice choice;
            choice.name = name_;
            choice.isForTerminal = ::isatty(STDOUT_FILENO) == 1;
            for (int i = 0; i < sqlite3_column_count(statement); ++i)
                choice.fields.push_back({sqlite3_column_name(statement, i), nullptr, {}});
            form_ = MakeRowForm(std::move(choice));
        }
        return *form_;
    }
    // JSON has no infinity.
    static FieldValue ValueOf(sqlite3_stmt* statement, int column) {
        using Kind = FieldValue::Kind;
        std::string text = TextOf(statement, column);
        if (sqlite3_column_type(statement, column) == SQLITE_NULL)
            return {};
        if (IsNumber(statement, column))
            return text.ends_with("Inf") ? FieldValue() : FieldValue{Kind::number, std::move(text)};
        return {Kind::text, std::move(text)};
    }

    const std::string name_;
    std::unique_ptr<RowForm> form_;
    bool isEmpty_ = true;
};

// Keeps the first rows until it knows how wide the columns should be; those that come later keep to
// that, longer values stand out of their column.
class Table final : public SqlForm {
public:
    explicit Table(std::size_t columns) : columns_(columns) {}

    std::string Row(sqlite3_stmt* statement) override {
        constexpr std::size_t mostKept = 1000;
        Cells cells;
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
            cells.push_back({Escaped(TextOf(statement, i)), IsNumber(statement, i)});
        if (isMeasured_)
            return Line(cells);
        kept_.push_back(std::move(cells));
        return kept_.size() < mostKept ? "" : Release(statement);
    }
    std::string End(sqlite3_stmt* statement) override {
        return isMeasured_ ? "" : Release(statement);
    }

private:
    struct Cell {
        std::string text;
        bool isNumber = false;
    };
    using Cells = std::vector<Cell>;
    static constexpr std::size_t gap = 2, narrowest = 8;

    std::string Release(sqlite3_stmt* statement) {
        isMeasured_ = true;
        Cells heading;
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
            heading.push_back({Escaped(sqlite3_column_name(statement, i)),
                               !kept_.empty() && kept_[0][static_cast<std::size_t>(i)].isNumber});
        Measure(heading);
        std::string text = Line(heading);
        for (const Cells& cells : kept_)
            text += Line(cells);
        kept_.clear();
        return text;
    }

    void Measure(const Cells& heading) {
        widths_.assign(heading.size(), 0);
        const auto measure = [&](const Cells& cells) {
            for (std::size_t i = 0; i < cells.size(); ++i)
                widths_[i] = std::max(widths_[i], DisplayWidth(cells[i].text));
        };
        measure(heading);
        for (const Cells& cells : kept_)
            measure(cells);
        // What is too much is taken from the widest.
        const auto all = [&] {
            return std::accumulate(widths_.begin(), widths_.end(), gap * (widths_.size() - 1));
        };
        for (std::size_t total = all(); columns_ != 0 && total > columns_; --total) {
            const auto widest = std::max_element(widths_.begin(), widths_.end());
            if (*widest <= narrowest)
                break;
            --*widest;
        }
    }

    std::string Line(const Cells& cells) const {
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const std::string text =
                columns_ == 0 ? cells[i].text : Fit(cells[i].text, widths_[i], Keep::start);
            const std::size_t width = DisplayWidth(text);
            const std::string blanks(widths_[i] > width ? widths_[i] - width : 0, ' ');
            line.append(i > 0 ? gap : 0, ' ');
            line.append(cells[i].isNumber ? blanks + text : text + blanks);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        return line + "\n";
    }

    const std::size_t columns_;
    bool isMeasured_ = false;
    std::vector<Cells> kept_;
    std::vector<std::size_t> widths_;
};

}  // namespace

std::unique_ptr<SqlForm> MakeSqlForm(const std::string& name, std::size_t columns) {
    if (name == "table")
        return std::make_unique<Table>(columns);
    return std::make_unique<Rows>(name);
}

}  // namespace zel
