// SPDX-License-Identifier: Apache-2.0
//
// Who is at the other end of a local socket, and whether the permissions of a file would let it
// write there: the agent writes for others, who must have no more rights through it than without.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <vector>

namespace sysdb_etcd {

struct Peer {
    pid_t pid = 0;
    uid_t user = static_cast<uid_t>(-1);
    std::vector<gid_t> groups;
};

// As of the moment at which the connection was made.
bool identify_peer(int socket, Peer &peer);

// As the system decides for a process of this user and these groups: only the class that fits
// first counts. Root may.
bool may_write(const Peer &peer, const struct stat &file);
bool may_enter(const Peer &peer, const struct stat &directory);

}  // namespace sysdb_etcd
