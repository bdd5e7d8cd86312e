// SPDX-License-Identifier: Apache-2.0
//
// Whether this node can join a cluster: asks each server, reads the configuration, compares it with
// this node's, and finds out what the user may write. It changes nothing on either side.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent/names.hpp"
#include "gateway/client.hpp"

namespace sysdb_etcd {

class Probe {
  public:
    enum class Configuration { kUnknown, kNone, kThere, kOther };  // kOther: of another version

    Probe(net::Loop &loop, Client &client, Names names);

    // Calls `done` once.
    void start(net::Time until, std::function<void()> done);

    // What was found out, as JSON.
    std::string text() const;

  private:
    struct Server {
        bool answers = false;
        std::string version;
        std::string fault;
    };

    void ask_servers();
    void take_status(std::size_t server, const Reply &reply);
    void load_page();
    void take_page(const Reply &reply);
    bool compare();
    void try_write();
    void take_write(const Reply &reply);
    void try_many();
    void again(void (Probe::*step)(), const Reply &reply);
    void end(std::string fault);

    net::Loop &loop_;
    Client &client_;
    const Names names_;
    net::Timer pause_;
    net::Time until_ = 0;
    std::function<void()> done_;
    void (Probe::*next_step_)() = nullptr;

    std::vector<Server> servers_;
    std::size_t open_ = 0;
    std::string fault_;
    Configuration configuration_ = Configuration::kUnknown;
    std::uint64_t cluster_ = 0;
    std::uint64_t revision_ = 0;
    std::uint64_t newest_ = 0;  // of the changes of the configuration
    std::uint32_t limit_;
    std::string next_;
    std::map<std::string, std::string> items_;  // by path, as the cluster has them
    std::size_t own_items_ = 0;
    std::size_t differing_ = 0;
    bool may_write_ = false;
    bool takes_many_ = false;
};

}  // namespace sysdb_etcd
