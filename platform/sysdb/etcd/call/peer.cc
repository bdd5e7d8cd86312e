// SPDX-License-Identifier: Apache-2.0

#include "call/peer.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace sysdb_etcd {
namespace {

bool may(const Peer &peer, const struct stat &file, mode_t right) {
    if (peer.user == 0) {
        return true;
    }
    if (peer.user == file.st_uid) {
        return (file.st_mode & right << 6) != 0;
    }
    const bool is_member =
        std::find(peer.groups.begin(), peer.groups.end(), file.st_gid) != peer.groups.end();
    return (file.st_mode & (is_member ? right << 3 : right)) != 0;
}

}  // namespace

bool identify_peer(int socket, Peer &peer) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return false;
    }
    peer.pid = credentials.pid;
    peer.user = credentials.uid;
    std::vector<gid_t> groups(32);
    for (;;) {
        size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
            groups.resize(size / sizeof(gid_t));
            break;
        }
        if (errno != ERANGE || size / sizeof(gid_t) <= groups.size()) {
            return false;
        }
        groups.resize(size / sizeof(gid_t));
    }
    groups.push_back(credentials.gid);
    peer.groups = std::move(groups);
    return true;
}

bool may_write(const Peer &peer, const struct stat &file) {
    return may(peer, file, S_IWOTH);
}

bool may_enter(const Peer &peer, const struct stat &directory) {
    return may(peer, directory, S_IXOTH);
}

}  // namespace sysdb_etcd
