#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace zel {

// What a request wants to do.
enum class Right {
    none,        // whether the service lives
    read,        // ask, and see status and metrics
    write,       // bring events
    annotate,    // add enrichments
    administer,  // purge
};

// Who is at the other end of a Unix socket, as the system tells it of the moment of connecting.
struct Peer {
    bool isKnown = false;  // false for a port
    uid_t uid = 0;
    pid_t pid = 0;
    std::vector<gid_t> groups;  // of the user, the effective one first
};
Peer PeerOf(int socket);

// Who may do what on the socket, by group. The file's mode says who may come at all; a right that
// no group was named for is theirs, but that to administer. Root and the service's own user have
// every right, and who may administer has too.
class GroupRights {
public:
    // An empty name is no group. False, with a message, when there is no such group.
    bool Give(Right right, const std::string& group, std::string* problem);
    bool Has(const Peer& peer, Right right) const;

private:
    std::map<Right, gid_t> groups_;
};

}  // namespace zel
