// SPDX-License-Identifier: Apache-2.0
//
// The clients of the configured servers. There is one for each server and its settings, for
// all requests of the process: connections, identifiers and marks of silent servers are
// shared. When the configuration changes, those that are no longer configured end with the
// last request that uses them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backends/server_figures.hpp"
#include "backends/server_health.hpp"
#include "config/snapshot.hpp"
#include "net/loop.hpp"
#include "radius/client.hpp"
#include "radius/vendor_map.hpp"
#include "tacacs/client.hpp"

namespace service {

// What a server is asked for. RADIUS has a port for each.
enum class Use : std::uint8_t { kRights, kAccounting };

class ServerClient {
  public:
    ServerClient(net::Loop &loop, Server server, std::uint64_t number);
    ServerClient(const ServerClient &) = delete;
    ServerClient &operator=(const ServerClient &) = delete;

    const Server &server() const { return server_; }
    // For log and trace: "radius/192.0.2.1,1812,1813".
    const std::string &name() const { return name_; }
    // In the table of silent servers. A server with other settings has another name there, so
    // a corrected key is tried at once.
    const std::string &health(Use use) const { return health_[static_cast<std::size_t>(use)]; }
    // Why it cannot be asked; empty when it can.
    const std::string &fault() const { return fault_; }
    // The time of all tries.
    net::Time longest_wait() const;

    // RADIUS has a port for each use, with a state of its own; other servers have one.
    bool has_two_ports() const { return health_[0] != health_[1]; }
    ServerFigures &figures(Use use) { return figures_[has_two_ports() ? static_cast<std::size_t>(use) : 0]; }
    const ServerFigures &figures(Use use) const {
        return figures_[has_two_ports() ? static_cast<std::size_t>(use) : 0];
    }
    // Questions that wait for an answer, and those that wait to be sent.
    struct Load {
        std::size_t in_flight = 0;
        std::size_t waiting = 0;
    };
    Load load(Use use) const;

    // Of the server's protocol, and only without a fault.
    radius::Client &radius(Use use) {
        return *(use == Use::kAccounting && accounting_ ? accounting_ : radius_);
    }
    tacacs::Client &tacacs() { return *tacacs_; }
    const radius::VendorMap &vendor_map() const { return vendor_map_; }

  private:
    void make_radius(net::Loop &loop);
    void make_tacacs(net::Loop &loop);

    const Server server_;
    const std::string name_;
    std::string health_[2];
    ServerFigures figures_[2];
    std::string fault_;
    std::unique_ptr<radius::Client> radius_, accounting_;
    std::unique_ptr<tacacs::Client> tacacs_;
    radius::VendorMap vendor_map_;
};

using ServerClientPtr = std::shared_ptr<ServerClient>;

class ServerClients {
  public:
    explicit ServerClients(net::Loop &loop) : loop_(loop) {}
    ServerClients(const ServerClients &) = delete;
    ServerClients &operator=(const ServerClients &) = delete;

    // Makes clients of the servers that are new in a configuration, or whose files have
    // changed, and gives up those that are not in it.
    void use(const Snapshot &snapshot);
    // The client of a server of the present or an earlier configuration.
    ServerClientPtr find(const Server &server);
    std::vector<ServerClientPtr> find(const Group &group);

    bool has_health(const std::string &name) const;
    const std::vector<ServerClientPtr> &all() const { return all_; }
    // The client of a server of the present configuration; null if there is none.
    const ServerClient *present(const Server &server) const;

  private:
    ServerClientPtr make(const Server &server);
    // Changes when one of the files that a server's settings name is written, or the interface
    // that they name gets another address.
    static std::string stamp_of(const Server &server);

    net::Loop &loop_;
    std::uint64_t last_number_ = 0;
    std::vector<ServerClientPtr> all_;
    std::map<const ServerClient *, std::string> stamps_;
    // Made for requests of earlier configurations, as long as such requests use them.
    std::vector<std::weak_ptr<ServerClient>> earlier_;
};

}  // namespace service
