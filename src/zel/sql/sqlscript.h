#pragma once

#include <string>
#include <string_view>

#include "zel/sql/sqldatabase.h"
#include "zel/terminal/output.h"

namespace zel {

// Runs what people write, statements and commands of the shell, one after the other, and prints
// their rows. For one thread.
class SqlScript {
public:
    SqlScript(SqlDatabase& database, SqlStore& store, Output& output, std::string form)
        : database_(database), store_(store), output_(output), form_(std::move(form)) {}

    // Runs all statements of the text, or one command such as .tables, and tells what is wrong on
    // stderr. Gives what the program would end with; behind a statement that fails none is run.
    int Run(std::string_view text);
    // Whether the text is whole: statements up to a semicolon, or a command.
    static bool IsWhole(const std::string& text);
    static bool IsCommand(std::string_view text);
    // Whether .quit was run.
    bool HasQuit() const noexcept { return hasQuit_; }

private:
    int RunCommand(std::string_view line);
    int RunStatement(sqlite3_stmt* statement, std::string_view text);
    int Step(sqlite3_stmt* statement);
    int TellError(int result, std::string_view text);
    int TellFailures();
    int PrintSchema(const std::string& table);

    SqlDatabase& database_;
    SqlStore& store_;
    Output& output_;
    std::string form_;
    std::string told_;  // failures that were told already
    bool toldRepeats_ = false;
    bool hasQuit_ = false;
};

}  // namespace zel
