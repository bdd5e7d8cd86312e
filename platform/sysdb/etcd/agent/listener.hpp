// SPDX-License-Identifier: Apache-2.0
//
// The agent's socket in the run directory of the database, and its clients: the processes of
// this node that change configuration. What a client may change is what it could change in the
// database's file.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "call/form.hpp"
#include "call/peer.hpp"
#include "net/descriptor.hpp"
#include "net/loop.hpp"
#include "platform/sysdb.h"

namespace sysdb_etcd {

// In the run directory of the database; locked while an agent runs.
inline constexpr char kAgentLockName[] = "agent.lock";

class Listener {
  public:
    static constexpr std::size_t kMostClients = 256;
    static constexpr std::size_t kMostOfOneUser = 64;  // except root

    // `handle` answers a request, perhaps later, by its second argument.
    using Reply = std::function<void(const Answer &)>;
    using Handle = std::function<void(Request, Reply)>;

    Listener(net::Loop &loop, Handle handle);
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    // What is wrong, for people; empty: it listens.
    std::string open();
    std::size_t clients() const { return clients_.size(); }

  private:
    class Client;

    void accept_all();
    std::size_t clients_of(uid_t user) const;
    void look_for_socket();
    std::string bind_socket(int directory);
    void remove(std::uint64_t number);

    net::Loop &loop_;
    const Handle handle_;
    net::Descriptor lock_;
    net::Descriptor socket_;
    net::Watch watch_;
    net::Timer next_look_;
    std::uint64_t last_number_ = 0;
    std::map<std::uint64_t, std::shared_ptr<Client>> clients_;
    std::uint64_t device_ = 0;
    std::uint64_t inode_ = 0;
};

// The code for a peer that may not change the configuration, else 0.
cerrno refusal_of(const Peer &peer);

}  // namespace sysdb_etcd
