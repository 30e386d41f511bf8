#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include <algorithm>
#include <string>
#include <vector>

#include "agent/config.h"

// A file of TOML against the table of keys. The whole file is looked at before anything takes
// effect, and what is wrong is told with its line: who starts a service wants one message that
// leads to the mistake. toml++ takes long to compile, so nothing else includes it.

namespace zel {

namespace {

class ConfigReading {
public:
    ConfigReading(const std::string& file, TellUnknown tellUnknown, AgentConfig* config,
                  std::string* problem)
        : file_(file), tellUnknown_(tellUnknown), config_(*config), problem_(*problem) {}

    bool Take(const toml::table& root) {
        for (const auto& [section, content] : root)
            if (!TakeSection(section, content))
                return false;
        return true;
    }

private:
    bool Refuse(const toml::source_region& at, const std::string& why) {
        problem_ = file_ + ":" + std::to_string(at.begin.line) + ": " + why;
        return false;
    }

    bool TakeSection(const toml::key& section, const toml::node& content) {
        std::vector<std::string_view> known;
        for (const ConfigKey& key : ConfigKeys())
            if (known.empty() || known.back() != key.section)
                known.push_back(key.section);
        if (std::find(known.begin(), known.end(), section.str()) == known.end())
            return Refuse(section.source(), tellUnknown_("section", section.str(), known));
        const toml::table* const table = content.as_table();
        if (table == nullptr)
            return Refuse(section.source(), std::string(section.str()) + " is a section: [" +
                                                std::string(section.str()) + "]");
        for (const auto& [name, value] : *table)
            if (!TakeKey(section.str(), name, value))
                return false;
        return true;
    }

    bool TakeKey(std::string_view section, const toml::key& name, const toml::node& value) {
        std::vector<std::string_view> known;
        for (const ConfigKey& key : ConfigKeys()) {
            if (key.section == section && key.name == name.str())
                return std::visit([&](auto place) { return Set(key, place, value); }, key.place);
            if (key.section == section)
                known.push_back(key.name);
        }
        return Refuse(name.source(),
                      "[" + std::string(section) + "]: " + tellUnknown_("key", name.str(), known));
    }

    bool RefuseKind(const ConfigKey& key, const toml::node& value, const char* wanted) {
        return Refuse(value.source(), std::string(key.section) + "." + std::string(key.name) +
                                          " is to be " + wanted);
    }

    bool Set(const ConfigKey& key, std::string AgentConfig::*place, const toml::node& value) {
        const auto text = value.value_exact<std::string>();
        if (!text)
            return RefuseKind(key, value, "a text");
        if (key.unit == "path" && !text->empty() && text->front() != '/')
            return RefuseKind(key, value, "a path from the root");
        if (text->empty() && !key.initial.empty() && key.name != "socket")
            return RefuseKind(key, value, "a path");
        config_.*place = *text;
        return true;
    }

    bool Set(const ConfigKey& key, bool AgentConfig::*place, const toml::node& value) {
        const auto flag = value.value_exact<bool>();
        if (!flag)
            return RefuseKind(key, value, "true or false");
        config_.*place = *flag;
        return true;
    }

    bool Set(const ConfigKey& key, std::uint64_t AgentConfig::*place, const toml::node& value) {
        const bool isSize = key.unit == "size";
        const auto number = value.value_exact<std::int64_t>();
        const auto text = isSize ? value.value_exact<std::string>() : std::nullopt;
        std::uint64_t given = 0;
        if (number && *number >= 0)
            given = static_cast<std::uint64_t>(*number);
        else if (!text || !ParseSize(*text, &given))
            return RefuseKind(
                key, value,
                isSize ? "a number of bytes or a text such as \"512M\"" : "a whole number");
        if (given < key.least || given > key.most)
            return RefuseKind(key, value,
                              ("between " + std::to_string(key.least) + " and " +
                               std::to_string(key.most) + ", and is " + std::to_string(given))
                                  .c_str());
        config_.*place = given;
        return true;
    }

    // Of a command the first alone is a path.
    bool Set(const ConfigKey& key, std::vector<std::string> AgentConfig::*place,
             const toml::node& value) {
        const toml::array* const list = value.as_array();
        if (list == nullptr)
            return RefuseKind(key, value, "a list: [\"...\"]");
        const bool isCommand = key.unit == "command";
        std::vector<std::string> texts;
        for (const toml::node& item : *list) {
            const auto text = item.value_exact<std::string>();
            const bool isPath = !isCommand || texts.empty();
            if (!text || (isPath && !text->starts_with('/')))
                return RefuseKind(key, item,
                                  isCommand ? "a list of texts, of which the first is a path from "
                                              "the root"
                                            : "a list of paths from the root");
            texts.push_back(*text);
        }
        config_.*place = std::move(texts);
        return true;
    }

    const std::string& file_;
    const TellUnknown tellUnknown_;
    AgentConfig& config_;
    std::string& problem_;
};

// What no single key tells.
std::string Contradiction(const AgentConfig& config) {
    if (config.socketPath.empty() && config.httpPort == 0)
        return "http.socket is empty and http.port is 0, so nobody could reach the service";
    if (config.httpPort != 0 && config.writeTokenFile.empty() && config.readTokenFile.empty())
        return "http.port needs http.write_token_file or http.read_token_file: every user of the "
               "machine can reach a port";
    if ((config.spoolPath + "/").starts_with(config.storePath + "/"))
        return "spool.path is not to be within store.path, where a purge takes every folder";
    return "";
}

}  // namespace

bool ReadAgentConfig(const std::string& file, TellUnknown tellUnknown, AgentConfig* config,
                     std::string* problem) {
    const toml::parse_result parsed = toml::parse_file(file);
    if (!parsed) {
        const std::uint32_t line = parsed.error().source().begin.line;
        *problem = file + (line != 0 ? ":" + std::to_string(line) : "") + ": " +
                   std::string(parsed.error().description());
        return false;
    }
    if (!ConfigReading(file, tellUnknown, config, problem).Take(parsed.table()))
        return false;
    const std::string contradiction = Contradiction(*config);
    if (!contradiction.empty())
        *problem = file + ": " + contradiction;
    return contradiction.empty();
}

}  // namespace zel
