#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// What the service is told to do: one file of TOML. All keys stand in one table, from which files
// are read and checked, the effective values are shown, and docs/service.md is checked.
namespace zel {

// Sizes in bytes, times in seconds. A value-initialised one holds the defaults of the table.
struct AgentConfig {
    AgentConfig();

    std::string storePath;
    std::uint64_t storeMaxSize = 0;     // 0: no limit
    std::uint64_t storePurgeEvery = 0;  // between two looks at the size
    std::uint64_t diskStopBelow = 0;    // free space below which nothing is taken in
    std::uint64_t diskResumePercent = 0;

    std::string spoolPath;
    std::uint64_t spoolMaxSize = 0;
    std::uint64_t spoolHold = 0;  // how long a request waits for room before it is refused
    std::uint64_t heldPerUser = 0;
    std::uint64_t idsKept = 0;
    std::uint64_t idsAge = 0;

    std::string socketPath;      // empty: no socket
    std::uint64_t httpPort = 0;  // 0: no port
    std::string writeTokenFile;
    std::string readTokenFile;
    std::uint64_t connections = 0;
    std::uint64_t threads = 0;  // that read bodies and make keys
    std::uint64_t bodySize = 0;
    std::uint64_t inflatedSize = 0;
    std::uint64_t headerTime = 0;
    std::uint64_t idleTime = 0;

    std::uint64_t items = 0;  // of one request
    std::uint64_t lineSize = 0;
    bool keepsUnmapped = false;
    bool writesUnmapped = false;
    std::string idMember;  // empty: none

    std::uint64_t webPort = 0;  // 0: no page

    std::vector<std::string> tailFiles;

    std::uint64_t questionsAtOnce = 0;
    std::uint64_t questionsWaiting = 0;
    std::uint64_t questionTime = 0;
    std::uint64_t questionStall = 0;
    std::uint64_t answerBuffer = 0;
    std::uint64_t followers = 0;

    std::vector<std::string> huntRules;
    bool huntAuditLog = false;
    std::uint64_t huntMemory = 0;   // of what is counted over time
    std::uint64_t huntBacklog = 0;  // of events that rules have not seen and the store has
    std::vector<std::string> alertCommand;
    std::uint64_t alertsAtOnce = 0;
    std::uint64_t alertsPerSecond = 0;
    std::uint64_t alertTime = 0;
    std::string alertSocket;

    std::string fleetUrl;  // empty: no fleet
    std::string fleetPasswordFile;
    std::string fleetHost;  // empty: this machine's identifier
    std::uint64_t fleetEvery = 0;
    std::uint64_t fleetBatchRows = 0;
    std::uint64_t fleetBatchSize = 0;
    std::uint64_t fleetRate = 0;  // rows a second; 0: no limit

    std::string readGroup;
    std::string writeGroup;
    std::string annotateGroup;
    std::string adminGroup;
};

// One key. Where a value comes from beside the file is nobody's business: a default stands here and
// nowhere else.
struct ConfigKey {
    using Place = std::variant<std::string AgentConfig::*, std::uint64_t AgentConfig::*,
                               bool AgentConfig::*, std::vector<std::string> AgentConfig::*>;

    std::string_view section;
    std::string_view name;
    Place place;
    // How values are written: "path", "size" (bytes, or "10G"), "seconds", "number", "percent",
    // "port", "group", "member", "flag", "url", "host", or a list that is empty by default:
    // "paths", or "command", a path and arguments.
    std::string_view unit;
    std::string_view initial;  // the default, as the file would say it
    std::uint64_t least = 0;   // of numbers, sizes and times
    std::uint64_t most = 0;
    std::string_view meaning;
    bool reloads = false;  // whether a service that runs takes a new value on SIGHUP
};

// In the order of the sections.
std::span<const ConfigKey> ConfigKeys();

// Suggests what somebody meant: the message for a name that is none of those known. The program's
// own, since it knows how it speaks.
using TellUnknown = std::string (*)(std::string_view what, std::string_view name,
                                    const std::vector<std::string_view>& known);

// Reads a file; what it leaves out keeps its default. False with one message, which names the file
// and the line, when it can't be read, is no TOML, has a key that is not known, or a value that is
// of the wrong kind or out of range; `*config` is then not to be used.
bool ReadAgentConfig(const std::string& file, TellUnknown tellUnknown, AgentConfig* config,
                     std::string* problem);

// What becomes of a configuration when its file is read anew.
struct ReloadedConfig {
    AgentConfig config;                 // of `read` what may change while the service runs
    std::vector<std::string> taken;     // names of keys whose values have changed
    std::vector<std::string> restarts;  // and of those that a restart will change
};
ReloadedConfig ReloadConfig(const AgentConfig& now, const AgentConfig& read);

// All effective values as a file of TOML that gives the same, each with its meaning ahead of it.
std::string ShowAgentConfig(const AgentConfig& config);

// A whole number of bytes, also with K, M, G or T behind it, powers of 1024. False for all else.
bool ParseSize(std::string_view text, std::uint64_t* bytes);

}  // namespace zel
