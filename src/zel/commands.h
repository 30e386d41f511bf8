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
    int limit = -1;
    bool explain = false;
    std::string output = "ndjson";  // or json
};
int RunQuery(const QueryOptions& options);

struct SettingsOptions {
    std::string key;
    std::string name;
    std::string value;  // for set
};
int RunSettingsGet(const SettingsOptions& options);
int RunSettingsSet(const SettingsOptions& options);

}  // namespace zel
