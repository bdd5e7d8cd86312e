// SPDX-License-Identifier: Apache-2.0

#include "listener/access.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace service {

namespace {

bool applies(const AccessRule &rule, const Peer &peer) {
    switch (rule.who) {
        case AccessRule::Who::kUser:
            return peer.uid == rule.uid;
        case AccessRule::Who::kGroup:
            return peer.is_member(rule.gid);
        case AccessRule::Who::kAny:
            return true;
    }
    return false;
}

}  // namespace

bool Peer::is_member(gid_t group) const {
    return gid == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

bool read_peer(int fd, Peer &peer) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || size != sizeof credentials) {
        return false;
    }
    peer.pid = credentials.pid;
    peer.uid = credentials.uid;
    peer.gid = credentials.gid;
    peer.groups.resize(64);
    for (;;) {
        size = static_cast<socklen_t>(peer.groups.size() * sizeof(gid_t));
        if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, peer.groups.data(), &size) == 0) {
            peer.groups.resize(size / sizeof(gid_t));
            return true;
        }
        if (errno != ERANGE) {
            peer.groups.clear();  // a kernel that does not know them: the first group counts
            return true;
        }
        peer.groups.resize(size / sizeof(gid_t));
    }
}

Access access_of(const Peer &peer, Ask ask, const std::vector<AccessRule> &rules) {
    Access access = Access::kRefused;
    for (const AccessRule &rule : rules) {
        if (rule.ask == ask && applies(rule, peer)) {
            access = std::max(access, rule.self ? Access::kSelf : Access::kGranted);
        }
    }
    return access;
}

}  // namespace service
