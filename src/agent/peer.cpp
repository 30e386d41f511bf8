#include "agent/peer.h"

#include <grp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace zel {

// The system gives the other groups in a call of its own, which tells how many there are when the
// room was too small.
Peer PeerOf(int socket) {
    Peer peer;
    ucred told{};
    socklen_t length = sizeof(told);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &told, &length) != 0)
        return peer;
    peer.isKnown = true;
    peer.uid = told.uid;
    peer.pid = told.pid;
    std::vector<gid_t> others(64);
    length = static_cast<socklen_t>(others.size() * sizeof(gid_t));
    int result = ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, others.data(), &length);
    if (result != 0 && length > others.size() * sizeof(gid_t)) {
        others.resize(length / sizeof(gid_t));
        result = ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, others.data(), &length);
    }
    others.resize(result == 0 ? length / sizeof(gid_t) : 0);
    peer.groups.push_back(told.gid);
    peer.groups.insert(peer.groups.end(), others.begin(), others.end());
    return peer;
}

bool GroupRights::Give(Right right, const std::string& group, std::string* problem) {
    if (group.empty())
        return true;
    ::group entry{};
    ::group* found = nullptr;
    std::vector<char> room(65536);
    if (::getgrnam_r(group.c_str(), &entry, room.data(), room.size(), &found) != 0 ||
        found == nullptr) {
        *problem = "there is no group " + group;
        return false;
    }
    groups_[right] = entry.gr_gid;
    return true;
}

bool GroupRights::Has(const Peer& peer, Right right) const {
    if (right == Right::none)
        return true;
    if (!peer.isKnown)
        return false;
    if (peer.uid == 0 || peer.uid == ::geteuid())
        return true;
    const auto isIn = [&](Right named) {
        const auto group = groups_.find(named);
        return group != groups_.end() && std::find(peer.groups.begin(), peer.groups.end(),
                                                   group->second) != peer.groups.end();
    };
    const bool isOfAll = right != Right::administer && !groups_.contains(right);
    return isOfAll || isIn(right) || isIn(Right::administer);
}

}  // namespace zel
