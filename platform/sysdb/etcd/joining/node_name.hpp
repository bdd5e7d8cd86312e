// SPDX-License-Identifier: Apache-2.0
//
// The name of a node in the cluster: a key says which machine has it, by an identity that the machine's
// database keeps. Two machines of one name would write the same keys, and be one line in the status.
#pragma once

#include <functional>
#include <string>

#include "gateway/client.hpp"
#include "keys/names.hpp"

namespace sysdb_etcd {

class NodeName {
  public:
    enum class Step {
        kClaim,   // unless another machine has it
        kTake,    // also then
        kRelease  // with all keys of the node, if this machine has it
    };

    NodeName(net::Loop &loop, Client &client, Names names, std::string machine);

    // Calls `done` once, with what is wrong, for people.
    void start(Step step, net::Time until, std::function<void(const std::string &)> done);

  private:
    void look();
    void take_look(const Reply &reply);
    void change(std::uint64_t revision);
    void end(const std::string &fault) { std::exchange(done_, nullptr)(fault); }
    void again(const Reply &reply);

    Client &client_;
    const Names names_;
    const std::string machine_;
    net::Timer pause_;
    Step step_ = Step::kClaim;
    net::Time until_ = 0;
    std::function<void(const std::string &)> done_;
};

// What is wrong when another machine has a node's name, and what to do.
std::string taken_text(const std::string &node);

}  // namespace sysdb_etcd
