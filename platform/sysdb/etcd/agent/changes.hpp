// SPDX-License-Identifier: Apache-2.0
//
// Changes on their way to the cluster, each as one transaction.
//
// A transaction compares the revision of every item that it depends on, so it is carried out
// only if the cluster has what the plan was made for; otherwise the plan is made again. It also
// writes its own number into a key of this node, its turn's, whose revision it compares too. When
// a reply is lost the transaction is sent again: if the first one was carried out, the second one
// is refused, and the turn's key says that the first one was. So nothing is carried out twice, and
// nothing that was carried out is reported as refused.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/mirror.hpp"
#include "call/form.hpp"

namespace sysdb_etcd {

class Changes {
  public:
    static constexpr std::size_t kTurns = 16;
    static constexpr std::size_t kMostWaiting = 1024;

    Changes(net::Loop &loop, Client &client, Mirror &mirror, Names names);
    Changes(const Changes &) = delete;
    Changes &operator=(const Changes &) = delete;
    ~Changes();

    using Done = std::function<void(cerrno rc, std::uint32_t failed)>;

    // Calls `done` once, perhaps before it returns: the changes are made, and this node's database
    // has them, or they are refused.
    void make(std::vector<ItemChange> changes, net::Time until, Done done);

    std::size_t under_way() const;
    std::uint64_t made() const { return made_; }
    std::uint64_t refused() const { return refused_; }

  private:
    class One;

    // What a reply has said of a turn's key.
    struct Turn {
        std::uint64_t revision = 0;  // of its last change; 0: there is no such key
        std::uint64_t as_of = 0;     // the revision of the cluster at which that was so
    };

    void use_turn(std::size_t turn);

    net::Loop &loop_;
    Client &client_;
    Mirror &mirror_;
    const Names names_;
    const std::string instance_;  // random: of this process
    std::uint64_t last_number_ = 0;
    std::vector<Turn> turns_ = std::vector<Turn>(kTurns);
    std::deque<std::shared_ptr<One>> waiting_;
    std::vector<std::shared_ptr<One>> running_ = std::vector<std::shared_ptr<One>>(kTurns);  // by turn
    std::uint64_t made_ = 0;
    std::uint64_t refused_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace sysdb_etcd
