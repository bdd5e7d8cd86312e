// SPDX-License-Identifier: Apache-2.0
//
// Who may ask what: the rules of aaad.conf against the credentials of a connection, as the
// kernel recorded them when the connection was made.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "config/settings.hpp"

namespace service {

struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;  // the supplementary ones

    bool is_member(gid_t group) const;
};

// The peer of a connected socket; false when the system does not say.
bool read_peer(int fd, Peer &peer);

enum class Access : std::uint8_t {
    kRefused,
    kSelf,  // only in the name of the peer's own user
    kGranted
};
Access access_of(const Peer &peer, Ask ask, const std::vector<AccessRule> &rules);

}  // namespace service
