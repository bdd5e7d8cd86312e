// SPDX-License-Identifier: Apache-2.0
//
// Names of the users behind connections, looked up on the threads of the workers: a name
// service that does not answer must not stop the loop.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

#include "backends/workers.hpp"
#include "net/loop.hpp"

namespace service {

class UserNames {
  public:
    using Done = std::function<void(const std::string &)>;

    UserNames(net::Loop &loop, Workers &workers) : loop_(loop), workers_(workers) {}

    // Calls `done` with the name, empty when there is none or too much waits; at once when the
    // name was looked up in the last minute.
    void find(uid_t uid, Done done);

  private:
    struct Known {
        std::string name;
        net::Time until = 0;
    };

    net::Loop &loop_;
    Workers &workers_;
    std::map<uid_t, Known> known_;
};

}  // namespace service
