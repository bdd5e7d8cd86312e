// SPDX-License-Identifier: Apache-2.0
//
// The first configuration of a cluster: that of this node. It is sent in several transactions;
// the key of the format comes last, and no agent uses the configuration without it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/names.hpp"
#include "gateway/client.hpp"

namespace sysdb_etcd {

class Import {
  public:
    Import(net::Loop &loop, Client &client, Names names);

    // Calls `done` with what is wrong, for people; empty: the cluster has this node's configuration.
    void start(net::Time until, std::function<void(const std::string &)> done);
    std::size_t items() const { return items_.size(); }

  private:
    struct Item {
        std::string key;
        std::string value;
    };

    std::string read_own();
    void look();
    void take_look(const Reply &reply);
    void send_next();
    void take_sent(const Reply &reply);
    void again(void (Import::*step)(), const Reply &reply);
    void end(const std::string &fault);

    net::Loop &loop_;
    Client &client_;
    const Names names_;
    net::Timer pause_;
    net::Time until_ = 0;
    std::function<void(const std::string &)> done_;
    void (Import::*next_step_)() = nullptr;
    std::vector<Item> items_;
    std::size_t sent_ = 0;
    std::size_t sending_ = 0;
    bool cleared_ = false;
    bool finishing_ = false;
};

}  // namespace sysdb_etcd
