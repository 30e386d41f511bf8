#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zel/arguments.h"
#include "zel/commands.h"

// What the functions that give commands their flags share.
namespace zel {

// An empty value is mostly a shell variable that was not set. Commands take an empty text for a
// flag that is absent, so it would widen the question without a word.
inline const CLI::Validator& NotEmpty() {
    static const CLI::Validator validator(
        [](std::string& text) {
            return text.empty() ? std::string("must not be empty") : std::string();
        },
        "");
    return validator;
}

// Options for the command's flags to fill; when the command is given, `run` becomes `what` with
// them.
template <typename Options>
Options& OptionsOf(CLI::App& command, Run& run, int (*what)(const Options&)) {
    auto options = std::make_shared<Options>();
    command.callback([options, what, &run] { run = [options, what] { return what(*options); }; });
    return *options;
}

// May be given once: the library refuses a second.
inline CLI::Option* AddText(CLI::App& command, const char* name, std::string& text,
                            const char* kind, const char* help) {
    return command.add_option(name, text, help)->check(NotEmpty())->type_name(kind);
}

// May be given several times, with one value each, so that a flag does not swallow the DOCUMENT
// behind it.
inline void AddTexts(CLI::App& command, const char* name, std::vector<std::string>& texts,
                     const char* kind, const char* help) {
    command.add_option(name, texts, help)
        ->allow_extra_args(false)
        ->check(NotEmpty())
        ->type_name(kind);
}

// What the flags of `query` ask, read from parameters of the same names, with _ for - where one
// likes. False with words that name the parameter.
bool ReadQueryParameters(const std::vector<std::pair<std::string, std::string>>& parameters,
                         ParameterQuestion* question, std::string* problem);

// The commands that ask, in askarguments.cpp.
void AddQuery(CLI::App& command, Run& run);
void AddFollow(CLI::App& command, Run& run);
void AddHunt(CLI::App& command, Run& run);
void AddSql(CLI::App& command, Run& run);
void AddTree(CLI::App& command, Run& run);

}  // namespace zel
