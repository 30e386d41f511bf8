#pragma once

#include <string>
#include <string_view>

namespace zel::fleet {

// Where a fleet's server is, and as whom it is asked.
struct FleetAddress {
    std::string url;       // http[s]://HOST:PORT, as people are told of it
    std::string user;      // empty: the server's default user
    std::string database;  // empty: the user's default database
    std::string password;  // never part of a URL, of a message or of a command line
    // Whether it is this machine, so that bytes on the way cost nothing.
    bool isLocal = false;
};

// Reads http[s]://[USER@]HOST[:PORT][/DATABASE]. False with words for all else, a password in it
// included. Ports are 8123 and, with https, 8443 where none is named.
bool ParseFleetAddress(std::string_view text, FleetAddress* address, std::string* problem);

// The same with the password: the first line of a file, else the environment's ZEL_FLEET_PASSWORD,
// else none. An empty name is no file.
bool ReadFleetAddress(std::string_view text, const std::string& passwordFile, FleetAddress* address,
                      std::string* problem);

}  // namespace zel::fleet
