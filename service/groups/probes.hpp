// SPDX-License-Identifier: Apache-2.0
//
// Marks silent servers, and asks those that can be probed whether they answer: when a login has
// waited for half of its time, when a server is marked, and after each of its dead times. The
// others are probed by the next request whose turn it is.
//
// Servers drop some requests, such as those for a realm whose own server is down. With a name of
// such a realm anyone could have the server passed over for all others, whose logins the next
// method would then decide. So a server that has answered anyone meanwhile is not marked.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "backends/backend.hpp"
#include "backends/server_health.hpp"
#include "groups/server_client.hpp"

namespace service {

class Probes {
  public:
    Probes(net::Loop &loop, ServerHealth &health) : loop_(loop), health_(health) {}
    Probes(const Probes &) = delete;
    Probes &operator=(const Probes &) = delete;

    // A server has not answered for some time, and may still do so.
    void suspect(const ServerClientPtr &server, Use use);
    // A server was silent since a request was sent.
    void silent(const ServerClientPtr &server, Use use, net::Time asked_at, const std::string &why);
    // The network says that a server cannot be reached.
    void unreachable(const ServerClientPtr &server, Use use, const std::string &why);
    // Gives up servers that are no longer configured.
    void keep_only(const ServerClients &clients);

  private:
    struct Probe {
        std::weak_ptr<ServerClient> server;
        Use use = Use::kRights;
        std::unique_ptr<Attempt> attempt;  // null: waits for its time
        std::unique_ptr<net::Timer> timer;
    };

    void marked(const ServerClientPtr &server, Use use, bool is_new, const std::string &why);
    void probe(const std::string &health);
    void take(const std::string &health, bool is_answered);

    net::Loop &loop_;
    ServerHealth &health_;
    std::map<std::string, Probe> probes_;  // by the name in the table of silent servers
};

}  // namespace service
