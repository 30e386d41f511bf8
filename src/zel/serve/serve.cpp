#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "agent/agent.h"
#include "agent/config.h"
#include "agent/rulebook.h"
#include "zel/commands.h"
#include "zel/serve/webtools.h"
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

bool TakeWebPort(const std::string& text, AgentConfig* config, std::string* problem) {
    if (text.empty())
        return true;
    constexpr std::uint64_t mostPort = 65535;
    std::uint64_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool isPort =
        error == std::errc() && end == text.data() + text.size() && port > 0 && port <= mostPort;
    if (isPort)
        config->webPort = port;
    else
        *problem = "--web: " + text + " is no port";
    return isPort;
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
        return isRead && TakeWebPort(options.webPort, config, problem);
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
    const WebTools tools = MakeWebTools(options.readParameters);
    switch (RunAgent(config, ZEL_VERSION, Terminal(), HostReports(), InterruptDescriptor(), tools,
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
