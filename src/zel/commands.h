#pragma once

#include <string>
#include <vector>

// The commands. Each gives the value that the program ends with (exitCode in messages.h).
namespace zel {

struct IngestOptions {
    std::vector<std::string> files;  // "-" is standard input, and so is an empty list
    bool printKeys = false;
    bool receiveRows = true;
};
int RunIngest(const IngestOptions& options);

struct QueryOptions {
    std::string document;  // a JSON text, or "-" for standard input; empty: built from the rest
    std::string since;
    std::string until;
    bool byReceive = false;
    // Values of one list are alternatives; all lists that hold something have to fit.
    std::vector<std::string> actions, objects, actorPaths, targetPaths, patterns, hashes, ips,
        correlations, typeIds;
    std::string limit;  // a number; empty: none
    bool enrichments = false;
    bool noLiveEnriched = false;
    bool explain = false;
    std::string output;  // ndjson, json or table; empty: table on a terminal, else ndjson
    bool showCursor = false;
    std::string afterCursor;
};
int RunQuery(const QueryOptions& options);

struct EnrichOptions {
    std::string key;   // with ndjson the file stands here
    std::string file;  // empty or "-": standard input
    bool live = false;
    bool ndjson = false;
};
int RunEnrich(const EnrichOptions& options);

struct SettingsOptions {
    std::string key;
    std::string name;
    std::string value;  // for set
};
int RunSettingsGet(const SettingsOptions& options);
int RunSettingsSet(const SettingsOptions& options);

}  // namespace zel
