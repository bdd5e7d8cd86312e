// SPDX-License-Identifier: Apache-2.0
//
// Groups of RADIUS and TACACS+ servers as methods of the service: what all of them share.
#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "backends/backend.hpp"
#include "backends/server_health.hpp"
#include "groups/logins.hpp"
#include "groups/probes.hpp"
#include "groups/record.hpp"
#include "groups/server_client.hpp"
#include "groups/walk.hpp"

namespace service {

class Groups {
  public:
    // The loop and the trace must live longer, and no question may be under way at the end.
    Groups(net::Loop &loop, Trace &trace)
        : clients_(loop), probes_(loop, health_), context_{loop,     trace,   health_,
                                                           clients_, probes_, &observer_} {}
    Groups(const Groups &) = delete;
    Groups &operator=(const Groups &) = delete;

    // The backends refer to this object.
    void add_to(Backends &backends);
    // Requests that come from now on are asked under this configuration. Those under way end
    // with the clients that they began with.
    void use(const Snapshot &snapshot);

    // Has a function told what came of asking each server.
    void observe(ServerObserver observer) { observer_ = std::move(observer); }

    // The record of an accounting request, with what its user's login has brought. Opens or
    // closes the session. Null for a kind of record that is not known.
    std::optional<AccountingRecord> record_of(const Question &question);
    // Sends a record whose event was `delay` seconds ago to the servers of a group in turn.
    // The question gives deadline, snapshot and id. A pass means that a server has it, a
    // failure that it can never be sent.
    std::unique_ptr<Attempt> send(const Question &question, const Group &group,
                                  const AccountingRecord &record, std::uint32_t delay, Backend::Done done);

    const ServerHealth &health() const { return health_; }
    const ServerClients &clients() const { return clients_; }
    std::vector<ServerClientPtr> clients(const Group &group) { return clients_.find(group); }
    // Sessions whose beginning was recorded, the newest of those that have ended included.
    std::size_t sessions() const { return logins_.sessions(); }

  private:
    ServerHealth health_;
    Logins logins_;
    ServerClients clients_;
    Probes probes_;
    ServerObserver observer_;
    const GroupContext context_;
};

}  // namespace service
