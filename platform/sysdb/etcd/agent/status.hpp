// SPDX-License-Identifier: Apache-2.0
//
// What the agent does and what it knows of the cluster, as JSON; and the line about itself that
// it keeps in the cluster for the others, as long as the agent runs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/changes.hpp"
#include "agent/mirror.hpp"
#include "gateway/client.hpp"

namespace sysdb_etcd {

class Status {
  public:
    Status(net::Loop &loop, Client &client, Mirror &mirror, Changes &changes, Names names,
           std::string machine);

    // Tells the others of this node now and then.
    void start();
    // The mirror's state has changed.
    void take_note();
    // Asks the cluster, and calls `done` once, after 2 seconds at most.
    void tell(std::function<void(std::string)> done);

  private:
    struct Question;

    void publish();
    void put_line(std::uint64_t lease);
    void take_put(const Reply &reply, std::uint64_t lease);
    void finish(const std::shared_ptr<Question> &question);
    std::string own_line() const;

    net::Loop &loop_;
    Client &client_;
    Mirror &mirror_;
    Changes &changes_;
    const Names names_;
    const std::string machine_;           // of this node; empty: it has none, and its name is not checked
    std::uint64_t machine_revision_ = 0;  // of the key that says which machine has the name
    bool name_taken_ = false;
    net::Timer next_;
    net::Time published_at_ = 0;
    std::string last_trouble_;  // also when it is over
    std::int64_t last_trouble_at_ = 0;
    const std::int64_t since_;
};

const char *state_word(Mirror::State state);

}  // namespace sysdb_etcd
