// SPDX-License-Identifier: Apache-2.0
//
// Marks silent servers, and asks those whose setting says that they answer Status-Server
// (RFC 5997) whether they are there again. The others are probed by the next request whose
// turn it is.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "backends/server_health.hpp"
#include "groups/server_client.hpp"

namespace service {

class Probes {
  public:
    Probes(net::Loop &loop, ServerHealth &health) : loop_(loop), health_(health) {}
    ~Probes();
    Probes(const Probes &) = delete;
    Probes &operator=(const Probes &) = delete;

    // A server was silent, or the network says that it cannot be reached.
    void silent(const ServerClientPtr &server, Use use, const std::string &why);
    // Gives up servers that are no longer configured.
    void keep_only(const ServerClients &clients);

  private:
    struct Probe {
        std::weak_ptr<ServerClient> server;
        Use use = Use::kRights;
        radius::Client::Ticket ticket = 0;  // 0: waits for its time
        std::unique_ptr<net::Timer> timer;
    };

    void plan(const ServerClientPtr &server, Use use);
    void probe(const std::string &health);
    void take(const std::string &health, const radius::Outcome &outcome);
    void give_up(Probe &probe);

    net::Loop &loop_;
    ServerHealth &health_;
    std::map<std::string, Probe> probes_;  // by the name in the table of silent servers
};

}  // namespace service
