#include "zel/sql/sqlscript.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "records/columns.h"
#include "records/seentexts.h"
#include "zel/results/resultform.h"
#include "zel/sql/sqlform.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

constexpr const char* help =
    ".help           these commands\n"
    ".mode FORM      how rows look: table, csv or ndjson\n"
    ".quit           end; so does the end of the input\n"
    ".schema [NAME]  the columns of the tables, or of one\n"
    ".tables         the tables\n"
    "All else is SQL, up to a semicolon.\n";

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t from = text.find_first_not_of(blanks);
    return from == text.npos ? "" : text.substr(from, text.find_last_not_of(blanks) - from + 1);
}

std::string_view TakeWord(std::string_view* text) {
    const std::size_t end = std::min(text->find_first_of(" \t"), text->size());
    const std::string_view word = text->substr(0, end);
    *text = Trimmed(text->substr(end));
    return word;
}

// The statement's line around a byte, with a caret there.
std::string PlaceIn(std::string_view text, std::size_t at) {
    const std::size_t before = at == 0 ? text.npos : text.rfind('\n', at - 1);
    const std::size_t from = before == text.npos ? 0 : before + 1;
    const std::size_t end = std::min(text.find('\n', at), text.size());
    return "\n" + PointAt(text.substr(from, end - from), at - from);
}

}  // namespace

bool SqlScript::IsCommand(std::string_view text) {
    return Trimmed(text).starts_with('.');
}

bool SqlScript::IsWhole(const std::string& text) {
    return IsCommand(text) || Trimmed(text).empty() || sqlite3_complete(text.c_str()) != 0;
}

int SqlScript::Run(std::string_view text) {
    if (text.find('\0') != text.npos) {
        // SQLite would take it for the end of the text, whatever comes.
        Say("a statement can't hold the character NUL");
        return exitCode::usage;
    }
    if (IsCommand(text))
        return RunCommand(Trimmed(text));
    int code = exitCode::done;
    while (!Trimmed(text).empty()) {
        sqlite3_stmt* statement = nullptr;
        const char* rest = nullptr;
        const int result = sqlite3_prepare_v2(database_.Get(), text.data(),
                                              static_cast<int>(text.size()), &statement, &rest);
        const std::size_t length = static_cast<std::size_t>(rest - text.data());
        if (result != SQLITE_OK)
            return TellError(result, text);
        if (statement != nullptr)  // else it was a comment
            code = RunStatement(statement, text.substr(0, length));
        sqlite3_finalize(statement);
        if (code != exitCode::done && code != exitCode::nothingFound)
            return code;
        text.remove_prefix(length);
    }
    return code;
}

int SqlScript::RunStatement(sqlite3_stmt* statement, std::string_view text) {
    const int result = Step(statement);
    if (!output_.Usable())
        return exitCode::done;  // nobody wants the rest; Output tells why
    if (result != SQLITE_DONE && result != SQLITE_ROW) {
        TellFailures();
        return TellError(result, text);
    }
    const int failures = TellFailures();
    return failures != exitCode::done ? failures
           : result == SQLITE_ROW     ? exitCode::done
                                      : exitCode::nothingFound;
}

// Prints the rows. SQLITE_ROW when there were some, SQLITE_DONE when there were none.
int SqlScript::Step(sqlite3_stmt* statement) {
    const auto form = MakeSqlForm(form_, TerminalColumns());
    const bool hasColumns = sqlite3_column_count(statement) != 0;
    bool hasRows = !hasColumns;
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
        hasRows = true;
        if (!output_.Write(form->Row(statement)))
            return SQLITE_ROW;
    }
    if (hasColumns && (result == SQLITE_DONE || hasRows))
        output_.Write(form->End(statement));
    output_.Flush();
    return result == SQLITE_DONE && hasRows ? SQLITE_ROW : result;
}

int SqlScript::TellError(int result, std::string_view text) {
    if (Interrupted() || result == SQLITE_INTERRUPT)
        return exitCode::interrupted;
    std::string why = sqlite3_errmsg(database_.Get());
    if (result == SQLITE_AUTH)
        why = "zel sql only reads: " + why;
    const int at = sqlite3_error_offset(database_.Get());
    if (at >= 0 && static_cast<std::size_t>(at) <= text.size())
        why += PlaceIn(text, static_cast<std::size_t>(at));
    Say(why);
    // What is sorted may have needed a file.
    const int kind = result & 0xFF;
    const bool isLoss = kind == SQLITE_NOMEM || kind == SQLITE_IOERR || kind == SQLITE_FULL ||
                        kind == SQLITE_CANTOPEN;
    return isLoss ? exitCode::losses : exitCode::usage;
}

// What failed to be read since this was last told.
int SqlScript::TellFailures() {
    std::string failures;
    for (const DatabaseError& error : store_.Failures())
        failures.append(failures.empty() ? "" : "\n").append(Escaped(error.Text()));
    if (const std::uint32_t reads = store_.DamagedReads())
        failures.append(failures.empty() ? "" : "\n")
            .append(std::to_string(reads) + " read(s) met damaged data; -v tells where");
    if (store_.MayRepeat() && !std::exchange(toldRepeats_, true))
        Say("a walk had more than " + std::to_string(SeenTexts::mostTexts) +
            " events: those behind them may come as often as they are stored");
    if (failures == told_)
        return exitCode::done;
    told_ = failures;
    for (std::string_view rest = failures; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        Say(std::string(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return exitCode::losses;
}

int SqlScript::RunCommand(std::string_view line) {
    const std::string_view command = TakeWord(&line);
    const std::string argument(line);
    if (command == ".quit" || command == ".exit") {
        hasQuit_ = true;
        return exitCode::done;
    }
    if (command == ".help")
        return output_.Write(help) && output_.Flush() ? exitCode::done : exitCode::losses;
    if (command == ".tables")
        return Run("SELECT name AS \"table\" FROM sqlite_schema ORDER BY 1");
    if (command == ".schema")
        return PrintSchema(argument);
    if (command == ".mode" && (argument == "table" || argument == "csv" || argument == "ndjson")) {
        form_ = argument;
        return exitCode::done;
    }
    Say(command == ".mode"
            ? ".mode takes table, csv or ndjson"
            : UnknownName("command", command, {".help", ".mode", ".quit", ".schema", ".tables"}));
    return exitCode::usage;
}

// As CREATE TABLE would say it, with what the columns mean.
int SqlScript::PrintSchema(const std::string& table) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(
        database_.Get(),
        "SELECT s.name, c.name, c.type, c.cid = max(c.cid) OVER (PARTITION BY s.name) "
        "FROM sqlite_schema s, "
        "pragma_table_info(s.name) c WHERE ?1 = '' OR s.name = ?1 ORDER BY 1, c.cid",
        -1, &statement, nullptr);
    sqlite3_bind_text(statement, 1, table.c_str(), -1, SQLITE_TRANSIENT);
    std::string text, last;
    const auto textOf = [statement](int column) {
        return std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)));
    };
    while (sqlite3_step(statement) == SQLITE_ROW) {
        if (textOf(0) != last)
            text += (last.empty() ? "CREATE TABLE " : ");\nCREATE TABLE ") + textOf(0) + "(\n";
        last = textOf(0);
        std::string line = "  " + textOf(1) + " " + textOf(2);
        line += sqlite3_column_int(statement, 3) != 0 ? "" : ",";
        constexpr std::size_t meaningAt = 26;
        const Column* const column = last == "events" ? FindColumn(textOf(1)) : nullptr;
        if (column != nullptr)
            line.append(line.size() < meaningAt ? meaningAt - line.size() : 1, ' ')
                .append("-- ")
                .append(column->meaning);
        text += line + "\n";
    }
    sqlite3_finalize(statement);
    if (text.empty()) {
        Say("no table " + table);
        return exitCode::usage;
    }
    return output_.Write(text + ");\n") && output_.Flush() ? exitCode::done : exitCode::losses;
}

}  // namespace zel
