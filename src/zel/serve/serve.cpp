#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <optional>

#include "agent/agent.h"
#include "agent/config.h"
#include "agent/rulebook.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"

// The commands of the service. What it does stands in src/agent; here it meets the program: its
// configuration file, its messages, its end.

namespace zel {

namespace {

bool ReadConfig(const std::string& file, AgentConfig* config) {
    std::string problem;
    const bool isRead = ReadAgentConfig(file, UnknownName, config, &problem);
    if (!isRead)
        Say(problem);
    return isRead;
}

}  // namespace

int RunConfigShow(const ServeOptions& options) {
    AgentConfig config;
    if (!options.config.empty() && !ReadConfig(options.config, &config))
        return exitCode::usage;
    std::fputs(ShowAgentConfig(config).c_str(), stdout);
    return exitCode::done;
}

int RunServe(const ServeOptions& options) {
    std::vector<std::string> tails;  // as they were named at the start
    for (const std::string& file : options.tails)
        tails.push_back(std::filesystem::absolute(file));
    const std::string file = options.config.empty() ? defaultConfigFile : options.config;
    const auto read = [&](AgentConfig* config, std::string* problem) {
        const bool isRead = ReadAgentConfig(file, UnknownName, config, problem);
        config->tailFiles.insert(config->tailFiles.end(), tails.begin(), tails.end());
        return isRead;
    };
    AgentConfig config;
    std::string problem;
    if (!read(&config, &problem)) {
        Say(problem);
        return exitCode::usage;
    }
    if (options.check) {
        const Rulebook book = ReadRulebook(config);
        for (const std::string& refused : book.problems)
            Say(refused);
        if (!book.summary.empty())
            Say("rules: " + book.summary);
        Say(book.problems.empty() ? "the configuration is good"
                                  : "the configuration is good, but for rules");
        return book.problems.empty() ? exitCode::done : exitCode::usage;
    }
    const auto input = options.readsInput ? std::optional(STDIN_FILENO) : std::nullopt;
    const AskByParameters ask = [&options](const auto& parameters, AskedQuestion* question,
                                           std::string* why) {
        ParameterQuestion asked;
        if (!options.readParameters(parameters, &asked, why))
            return false;
        question->document = std::move(asked.document);
        question->fits = std::move(asked.fits);
        return true;
    };
    switch (RunAgent(config, ZEL_VERSION, Terminal(), HostReports(), InterruptDescriptor(), ask,
                     input, {WatchHangups(), read})) {
        case AgentEnd::notBegun:
            return exitCode::noStore;
        case AgentEnd::left:
            return exitCode::losses;
        default:
            return Interrupted() && !Terminated() ? exitCode::interrupted : exitCode::done;
    }
}

}  // namespace zel
