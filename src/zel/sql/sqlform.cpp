#include "zel/sql/sqlform.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "common/jsontext.h"
#include "zel/terminal/textfit.h"

// Values come from statements of people, and of strangers within them: a table shows them escaped,
// and cells of CSV that a spreadsheet would run as a formula begin with an apostrophe.

namespace zel {

namespace {

std::string TextOf(sqlite3_stmt* statement, int column) {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return text == nullptr
               ? ""
               : std::string(text,
                             static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

bool IsNumber(sqlite3_stmt* statement, int column) {
    const int type = sqlite3_column_type(statement, column);
    return type == SQLITE_INTEGER || type == SQLITE_FLOAT;
}

void AppendCell(std::string* row, const std::string& text, bool isNumber) {
    const bool isFormula =
        !isNumber && !text.empty() && std::string_view("=+-@\t\r").find(text[0]) != text.npos;
    if (text.find_first_of(",\"\r\n") == text.npos) {
        row->append(isFormula ? "'" : "").append(text);
        return;
    }
    row->append(isFormula ? "\"'" : "\"");
    for (const char c : text)
        row->append(c == '"' ? 2 : 1, c);
    row->append("\"");
}

class Csv final : public SqlForm {
public:
    std::string Row(sqlite3_stmt* statement) override {
        std::string row = Heading(statement);
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            row.append(i > 0 ? "," : "");
            AppendCell(&row, TextOf(statement, i), IsNumber(statement, i));
        }
        return row.append("\r\n");
    }
    std::string End(sqlite3_stmt* statement) override { return Heading(statement); }

private:
    // The first time.
    std::string Heading(sqlite3_stmt* statement) {
        std::string row;
        for (int i = 0; !hasHeading_ && i < sqlite3_column_count(statement); ++i) {
            row.append(i > 0 ? "," : "");
            AppendCell(&row, sqlite3_column_name(statement, i), false);
        }
        return std::exchange(hasHeading_, true) ? "" : row.append("\r\n");
    }
    bool hasHeading_ = false;
};

class Ndjson final : public SqlForm {
public:
    std::string Row(sqlite3_stmt* statement) override {
        std::string row = "{";
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            row.append(i > 0 ? "," : "")
                .append(wm::JsonString(sqlite3_column_name(statement, i)))
                .append(":");
            if (sqlite3_column_type(statement, i) == SQLITE_NULL)
                row += "null";
            else if (IsNumber(statement, i))
                row += NumberOf(statement, i);
            else
                row += wm::JsonString(TextOf(statement, i));
        }
        return row.append("}\n");
    }
    std::string End(sqlite3_stmt*) override { return ""; }

private:
    // JSON has no infinity.
    static std::string NumberOf(sqlite3_stmt* statement, int column) {
        const std::string number = TextOf(statement, column);
        return number.ends_with("Inf") ? "null" : number;
    }
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
    if (name == "csv")
        return std::make_unique<Csv>();
    return std::make_unique<Ndjson>();
}

}  // namespace zel
