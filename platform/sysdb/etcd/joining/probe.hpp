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

#include "gateway/client.hpp"
#include "keys/import_record.hpp"
#include "keys/names.hpp"

namespace sysdb_etcd {

class Probe {
  public:
    enum class Configuration { kUnknown, kNone, kThere, kOther };  // kOther: of another version

    Probe(net::Loop &loop, Client &client, Names names, std::string machine);

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
    void look_at_node();
    void take_node(const Reply &reply);
    void list_around();
    void look_around();
    void take_around(const Reply &reply);
    void take_neighbour(std::string_view key);
    void try_write();
    void take_write(const Reply &reply);
    void try_many();
    void again(void (Probe::*step)(), const Reply &reply);
    void end(std::string fault);

    net::Loop &loop_;
    Client &client_;
    const Names names_;
    const std::string machine_;  // of this node; empty: it has no identity yet
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
    ImportRecord import_;
    bool has_import_ = false;
    bool name_taken_ = false;
    std::uint64_t name_seen_ = 0;  // when the machine that has the name has said something
    std::vector<RangeQuery> around_;
    std::size_t looked_ = 0;
    std::string neighbour_;  // a prefix that this one is within, or contains
    bool may_write_ = false;
    bool takes_many_ = false;
};

}  // namespace sysdb_etcd
