#include "zel/sql/sqlshell.h"

#include <editline/readline.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <vector>

#include "zel/terminal/messages.h"

// Lines are read by the editline library, which knows one terminal and takes bare functions: what
// they need stands in this file for the life of the shell.
//
// In the shell Ctrl-C is no end of the program, so the shell has a handler of its own: it ends the
// statement that runs and makes the waiting for a line return.

namespace zel {

namespace {

std::atomic<sqlite3*> running{nullptr};  // lock-free, so a handler may read it
std::atomic<bool> cancelled{false};
std::vector<std::string>* words = nullptr;

void OnCancel(int) {
    cancelled = true;
    if (sqlite3* const database = running)
        sqlite3_interrupt(database);
}

class CancelHandler {
public:
    explicit CancelHandler(sqlite3* database) {
        running = database;
        struct sigaction action {};
        action.sa_handler = OnCancel;
        ::sigaction(SIGINT, &action, &before_);
    }
    ~CancelHandler() {
        ::sigaction(SIGINT, &before_, nullptr);
        running = nullptr;
    }
    CancelHandler(const CancelHandler&) = delete;
    CancelHandler& operator=(const CancelHandler&) = delete;

private:
    struct sigaction before_ {};
};

// What may stand in a statement: SQL's commonest words, tables, columns and functions.
std::vector<std::string> CompletionWords(sqlite3* database) {
    std::vector<std::string> all = {"select",  "from",  "where",    "group by", "order by",
                                    "having",  "limit", "between",  "distinct", "join",
                                    "like",    "glob",  "regexp",   "is null",  "is not null",
                                    "with",    "union", "count(*)", ".help",    ".mode",
                                    ".schema", ".quit", ".tables"};
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database,
                       "SELECT name FROM sqlite_schema UNION SELECT c.name FROM sqlite_schema s, "
                       "pragma_table_info(s.name) c UNION SELECT name FROM pragma_function_list",
                       -1, &statement, nullptr);
    while (sqlite3_step(statement) == SQLITE_ROW)
        all.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    sqlite3_finalize(statement);
    return all;
}

char* NextWord(const char* begun, int isLater) {
    static std::size_t at = 0;
    if (isLater == 0)
        at = 0;
    while (at < words->size()) {
        const std::string& word = (*words)[at++];
        if (::strncasecmp(word.c_str(), begun, std::strlen(begun)) == 0)
            return ::strdup(word.c_str());  // the library frees it
    }
    return nullptr;
}

char** Complete(const char* begun, int, int) {
    rl_attempted_completion_over = 1;
    return rl_completion_matches(begun, NextWord);
}

// Empty without a home. Readable by its owner alone: statements may hold names.
std::string HistoryFile() {
    namespace fs = std::filesystem;
    const char* const state = std::getenv("XDG_STATE_HOME");
    const char* const home = std::getenv("HOME");
    fs::path folder;
    if (state != nullptr && *state != '\0')
        folder = state;
    else if (home != nullptr && *home != '\0')
        folder = fs::path(home) / ".local/state";
    else
        return "";
    std::error_code error;
    fs::create_directories(folder / "zelstore", error);
    return error ? "" : (folder / "zelstore/sql_history").string();
}

class History {
public:
    History() : file_(HistoryFile()) {
        constexpr int mostLines = 1000;
        using_history();
        stifle_history(mostLines);
        if (!file_.empty())
            read_history(file_.c_str());
    }
    ~History() {
        const mode_t before = ::umask(0077);
        if (!file_.empty())
            write_history(file_.c_str());
        ::umask(before);
    }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

private:
    const std::string file_;
};

// False at the end of the input.
bool ReadPrompted(const char* prompt, std::string* line) {
    char* const read = readline(prompt);
    if (read == nullptr)
        return false;
    *line = read;
    std::free(read);
    return true;
}

// One statement or command, perhaps of several lines; false at the end.
bool ReadStatement(std::string* text) {
    text->clear();
    do {
        std::string line;
        cancelled = false;
        if (!ReadPrompted(text->empty() ? "zel> " : "...> ", &line)) {
            if (!cancelled || Interrupted())
                return false;
            std::puts("");
            text->clear();
            continue;
        }
        text->append(text->empty() ? "" : "\n").append(line);
    } while (!SqlScript::IsWhole(*text));
    return true;
}

}  // namespace

int RunShell(SqlDatabase& database, SqlScript& script) {
    std::vector<std::string> known = CompletionWords(database.Get());
    words = &known;
    rl_readline_name = "zel";
    rl_outstream = stderr;  // stdout is for data
    rl_attempted_completion_function = Complete;
    const History history;
    const CancelHandler handler(database.Get());
    std::string text;
    while (!script.HasQuit() && ReadStatement(&text)) {
        if (text.find_first_not_of(" \t\n") == text.npos)
            continue;
        add_history(text.c_str());
        script.Run(text);
        if (cancelled && !Interrupted())
            Say("interrupted");
    }
    words = nullptr;
    return Interrupted() ? exitCode::interrupted : exitCode::done;
}

int RunInput(SqlScript& script) {
    int code = exitCode::done;
    std::string text, line;
    const auto isGood = [&] { return code == exitCode::done || code == exitCode::nothingFound; };
    while (isGood() && !script.HasQuit() && !Interrupted() && std::getline(std::cin, line)) {
        text.append(text.empty() ? "" : "\n").append(line);
        if (!SqlScript::IsWhole(text))
            continue;
        if (text.find_first_not_of(" \t\n") != text.npos)
            code = script.Run(text);
        text.clear();
    }
    if (Interrupted())
        return exitCode::interrupted;
    // The last statement may lack its semicolon.
    return isGood() && !script.HasQuit() && text.find_first_not_of(" \t\n") != text.npos
               ? script.Run(text)
               : code;
}

}  // namespace zel
