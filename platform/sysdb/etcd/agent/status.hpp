// SPDX-License-Identifier: Apache-2.0
//
// What the agent does and what it knows of the cluster, as JSON; and the line about itself that
// it keeps in the cluster for the others.
#pragma once

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
    Status(net::Loop &loop, Client &client, Mirror &mirror, Changes &changes, Names names);

    // Tells the others of this node now and then.
    void start();
    // Asks the cluster, and calls `done` once, after 2 seconds at most.
    void tell(std::function<void(std::string)> done);

  private:
    struct Question;

    void publish();
    void finish(const std::shared_ptr<Question> &question);
    std::string own_line() const;

    net::Loop &loop_;
    Client &client_;
    Mirror &mirror_;
    Changes &changes_;
    const Names names_;
    net::Timer next_;
    std::string published_;
    net::Time published_at_ = 0;
};

const char *state_word(Mirror::State state);

}  // namespace sysdb_etcd
