// SPDX-License-Identifier: Apache-2.0
//
// Who made a commit, and from where.
#pragma once

#include <cstdint>
#include <string>

namespace history {

struct Author {
    std::uint32_t uid = 0;
    std::string user;      // the name of the real user id
    std::string login;     // who logged in, if known and another: the kernel's login uid, or what sudo says
    std::string from;      // the address of the remote machine
    std::string terminal;  // "pts/0"

    bool operator==(const Author &other) const = default;
    // "alice (as root)", or "root"
    std::string name() const;
    // "192.0.2.7, pts/0"; empty if nothing is known
    std::string place() const;
};

// Of this process.
Author caller();
// Of a program that acts on its own, such as "aaad".
Author program(const std::string &name);

}  // namespace history
