#include "agent/config.h"

#include <algorithm>
#include <charconv>

#include "common/jsontext.h"

// The table of keys. A key is one row; its default is written as a file would have it and read by
// the same code, so that a default can't be a value which a file is refused.

namespace zel {

namespace {

constexpr std::uint64_t kilobyte = 1024;
constexpr std::uint64_t megabyte = kilobyte * 1024;
constexpr std::uint64_t gigabyte = megabyte * 1024;
constexpr std::uint64_t terabyte = gigabyte * 1024;
constexpr std::uint64_t day = 86400;

using C = AgentConfig;

constexpr ConfigKey keys[] = {
    {"store", "path", &C::storePath, "path", "/var/lib/zel/store", 0, 0,
     "The store's directory; it is made when it is missing."},
    {"store", "max_size", &C::storeMaxSize, "size", "10G", 0, 1024 * terabyte,
     "What the store may take; the oldest folders go when it is more. 0: no limit.", true},
    {"store", "purge_every", &C::storePurgeEvery, "seconds", "60", 1, day,
     "How often the size is looked at.", true},
    {"store", "stop_below", &C::diskStopBelow, "size", "2500M", 0, 1024 * terabyte,
     "With less free space on the store's or the spool's volume nothing is taken in.", true},
    {"store", "resume_percent", &C::diskResumePercent, "percent", "10", 0, 1000,
     "How far above stop_below free space has to climb until events are taken in again.", true},
    {"spool", "path", &C::spoolPath, "path", "/var/lib/zel/spool", 0, 0,
     "The directory of what was accepted and is not in the store yet; not below the store."},
    {"spool", "max_size", &C::spoolMaxSize, "size", "256M", megabyte, terabyte,
     "How much may wait there; then requests are held and refused.", true},
    {"spool", "hold", &C::spoolHold, "seconds", "5", 0, 600,
     "How long a request waits for room before it is refused.", true},
    {"spool", "held_per_user", &C::heldPerUser, "number", "4", 1, 4096,
     "How many requests of one user of the socket wait for room; more are refused at once.", true},
    {"spool", "ids", &C::idsKept, "number", "200000", 0, 100000000,
     "How many ids of the recent past are remembered, so that a repeat is stored once.", true},
    {"spool", "ids_age", &C::idsAge, "seconds", "3600", 0, 30 * day,
     "How long they are remembered.", true},
    {"http", "socket", &C::socketPath, "path", "/run/zel/zel.sock", 0, 0,
     "The Unix socket (mode 0660); empty: none."},
    {"http", "port", &C::httpPort, "port", "0", 0, 65535,
     "A port of 127.0.0.1, which needs tokens; 0: none."},
    {"http", "write_token_file", &C::writeTokenFile, "path", "", 0, 0,
     "The file whose first line is the token of those who bring events by the port.", true},
    {"http", "read_token_file", &C::readTokenFile, "path", "", 0, 0,
     "The same for those who read status and metrics.", true},
    {"http", "connections", &C::connections, "number", "64", 1, 4096,
     "How many there may be; beyond that the one that has been idle longest is closed."},
    {"http", "threads", &C::threads, "number", "2", 1, 64,
     "Threads that read what was sent; connections need none."},
    {"http", "body_size", &C::bodySize, "size", "16M", kilobyte, gigabyte,
     "The largest body as it is sent."},
    {"http", "inflated_size", &C::inflatedSize, "size", "64M", kilobyte, gigabyte,
     "The largest body once it is unpacked.", true},
    {"http", "header_time", &C::headerTime, "seconds", "10", 1, 600,
     "How long a request's head may take."},
    {"http", "idle_time", &C::idleTime, "seconds", "60", 1, day,
     "How long a connection is kept without a request."},
    {"web", "port", &C::webPort, "port", "0", 0, 65535,
     "A port of 127.0.0.1 for the page of `zel web`; 0: none."},
    {"intake", "items", &C::items, "number", "100000", 1, 10000000, "Events of one request.", true},
    {"intake", "line_size", &C::lineSize, "size", "1M", kilobyte, 64 * megabyte,
     "The longest line; a longer one is rejected, and the others are taken.", true},
    {"intake", "keep_unmapped", &C::keepsUnmapped, "flag", "true", 0, 0,
     "Store events that no rule makes a record of, as etw events; else they are rejected.", true},
    {"intake", "unmapped", &C::writesUnmapped, "flag", "true", 0, 0,
     "Keep in records what has no place in them, and where they came from.", true},
    {"intake", "id_member", &C::idMember, "member", "", 0, 0,
     "The member of an event that is its id where the request brings none, such as \"event.id\".",
     true},
    {"tail", "files", &C::tailFiles, "paths", "", 0, 0,
     "Files that grow, whose lines are events; each is followed also when it is rotated."},
    {"questions", "at_once", &C::questionsAtOnce, "number", "16", 1, 256,
     "Questions that are worked on at once, one that waits for a slow reader included.", true},
    {"questions", "waiting", &C::questionsWaiting, "number", "32", 0, 4096,
     "Questions that may wait for that; beyond that they are refused.", true},
    {"questions", "time", &C::questionTime, "seconds", "600", 1, 30 * day,
     "How long one may be worked on, waits for its reader apart.", true},
    {"questions", "stall", &C::questionStall, "seconds", "600", 1, day,
     "How long the reader of an answer may read nothing.", true},
    {"questions", "buffer", &C::answerBuffer, "size", "1M", kilobyte, gigabyte,
     "How much of an answer may wait for its reader; then the question waits.", true},
    {"questions", "followers", &C::followers, "number", "16", 0, 256,
     "Readers that events are handed on to as they are accepted, at once."},
    {"hunt", "rules", &C::huntRules, "paths", "", 0, 0,
     "Files and folders of rules that are run on what comes in; empty: none.", true},
    {"hunt", "audit_log", &C::huntAuditLog, "flag", "false", 0, 0,
     "Take the audit events of Windows for those of Sysmon, as --audit-log does.", true},
    {"hunt", "memory", &C::huntMemory, "size", "16M", megabyte, gigabyte,
     "What rules that count over time may remember; then the oldest groups go.", true},
    {"hunt", "backlog", &C::huntBacklog, "size", "64M", 0, terabyte,
     "How much the spool keeps for rules that can't keep up; then it is not tested.", true},
    {"hunt", "alert_command", &C::alertCommand, "command", "", 0, 0,
     "A program and its arguments, run for each hit with a line of JSON on its input.", true},
    {"hunt", "alert_at_once", &C::alertsAtOnce, "number", "2", 1, 64,
     "How many of them run at once.", true},
    {"hunt", "alert_per_second", &C::alertsPerSecond, "number", "10", 1, 1000,
     "How many are begun in a second; hits wait for that.", true},
    {"hunt", "alert_time", &C::alertTime, "seconds", "30", 1, 3600,
     "How long one may take; then it is ended.", true},
    {"hunt", "alert_socket", &C::alertSocket, "path", "", 0, 0,
     "A Unix socket of datagrams that each hit is sent to as a line of JSON.", true},
    {"fleet", "url", &C::fleetUrl, "url", "", 0, 0,
     "Where events are sent besides, http[s]://[USER@]HOST[:PORT][/DATABASE]; empty: nowhere.",
     true},
    {"fleet", "password_file", &C::fleetPasswordFile, "path", "", 0, 0,
     "The file whose first line is the password there; else ZEL_FLEET_PASSWORD.", true},
    {"fleet", "host", &C::fleetHost, "host", "", 0, 0,
     "What this machine is called there; empty: what stays of its identifier.", true},
    {"fleet", "every", &C::fleetEvery, "seconds", "10", 1, 3600,
     "How often what has come is sent; each host has its turn within that.", true},
    {"fleet", "batch_rows", &C::fleetBatchRows, "number", "10000", 1, 1000000,
     "Events of one request.", true},
    {"fleet", "batch_size", &C::fleetBatchSize, "size", "16M", kilobyte, gigabyte,
     "Bytes of one request, before they are packed.", true},
    {"fleet", "rate", &C::fleetRate, "number", "0", 0, 10000000,
     "Events a second, at most; 0: as many as are taken.", true},
    {"rights", "read_group", &C::readGroup, "group", "", 0, 0,
     "The group that may ask through the socket; empty: all whom the socket's mode lets in.", true},
    {"rights", "write_group", &C::writeGroup, "group", "", 0, 0,
     "The group that may bring events through it; empty: the same.", true},
    {"rights", "annotate_group", &C::annotateGroup, "group", "", 0, 0,
     "The group that may add enrichments; empty: the same.", true},
    {"rights", "admin_group", &C::adminGroup, "group", "", 0, 0,
     "The group that may purge, and do all else; empty: root and the service's own user alone.",
     true},
};

// The default of a row. Rows are right, or a test fails.
struct SetDefault {
    AgentConfig& config;
    const ConfigKey& key;

    void operator()(std::string C::*place) const { config.*place = key.initial; }
    void operator()(bool C::*place) const { config.*place = key.initial == "true"; }
    void operator()(std::uint64_t C::*place) const { ParseSize(key.initial, &(config.*place)); }
    void operator()(std::vector<std::string> C::*place) const { (config.*place).clear(); }
};

// Takes the value of one key from another configuration. Whether it differed.
struct TakeValue {
    AgentConfig& to;
    const AgentConfig& from;
    bool isToTake;

    template <typename Value>
    bool operator()(Value C::*place) const {
        const bool differs = !(to.*place == from.*place);
        if (isToTake)
            to.*place = from.*place;
        return differs;
    }
};

// A size that is a whole number of a unit is shown with it.
std::string ShownSize(std::uint64_t bytes) {
    constexpr std::string_view letters = "KMGT";
    std::string text = std::to_string(bytes);
    for (const char letter : letters) {
        if (bytes == 0 || bytes % kilobyte != 0)
            break;
        bytes /= kilobyte;
        text = "\"" + std::to_string(bytes) + letter + "\"";
    }
    return text;
}

struct Shown {
    const AgentConfig& config;
    const ConfigKey& key;

    std::string operator()(std::string C::*place) const { return wm::JsonString(config.*place); }
    std::string operator()(bool C::*place) const { return config.*place ? "true" : "false"; }
    std::string operator()(std::uint64_t C::*place) const {
        return key.unit == "size" ? ShownSize(config.*place) : std::to_string(config.*place);
    }
    std::string operator()(std::vector<std::string> C::*place) const {
        std::string list;
        for (const std::string& item : config.*place)
            list.append(list.empty() ? "" : ", ").append(wm::JsonString(item));
        return "[" + list + "]";
    }
};

}  // namespace

AgentConfig::AgentConfig() {
    for (const ConfigKey& key : keys)
        std::visit(SetDefault{*this, key}, key.place);
}

std::span<const ConfigKey> ConfigKeys() {
    return keys;
}

ReloadedConfig ReloadConfig(const AgentConfig& now, const AgentConfig& read) {
    ReloadedConfig all{now, {}, {}};
    for (const ConfigKey& key : keys)
        if (std::visit(TakeValue{all.config, read, key.reloads}, key.place))
            (key.reloads ? all.taken : all.restarts)
                .push_back(std::string(key.section) + "." + std::string(key.name));
    return all;
}

std::string ShowAgentConfig(const AgentConfig& config) {
    std::string text;
    std::string_view section;
    for (const ConfigKey& key : keys) {
        if (key.section != section)
            text.append(section.empty() ? "[" : "\n[").append(key.section).append("]\n");
        section = key.section;
        text.append("# ").append(key.meaning).append(key.reloads ? "\n" : " (Needs a restart.)\n");
        text.append(key.name).append(" = ");
        text.append(std::visit(Shown{config, key}, key.place)).append("\n");
    }
    return text;
}

bool ParseSize(std::string_view text, std::uint64_t* bytes) {
    constexpr std::string_view letters = "KMGT";
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *bytes);
    if (error != std::errc() || end == text.data())
        return false;
    const std::string_view rest(end, static_cast<std::size_t>(text.data() + text.size() - end));
    if (rest.empty())
        return true;
    const std::size_t power = rest.size() == 1 ? letters.find(rest.front()) : letters.npos;
    if (power == letters.npos)
        return false;
    for (std::size_t i = 0; i <= power; ++i) {
        if (*bytes > UINT64_MAX / kilobyte)
            return false;
        *bytes *= kilobyte;
    }
    return true;
}

}  // namespace zel
