// SPDX-License-Identifier: Apache-2.0
//
// The service's socket: accepts clients within the limits, and gives each message of theirs
// exactly one answer.
#pragma once

#include <sys/types.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "aaa/transport.h"
#include "decision/decision.hpp"
#include "listener/access.hpp"
#include "listener/connection.hpp"
#include "listener/message.hpp"
#include "listener/user_names.hpp"
#include "net/loop.hpp"

namespace service {

class Listener : private ConnectionHost {
  public:
    // Carries out a configuration message and calls the function with its result, on the
    // loop's thread.
    using Configure = std::function<void(const Request &, std::function<void(cerrno)>)>;

    Listener(const Deciders &deciders, Capture &capture, Configure configure);
    ~Listener() override;
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    // Opens the socket, also in place of one that is open: its clients stay. A text that says why
    // not; empty when it is open.
    std::string open(const std::string &path, std::uint32_t mode);
    // Whether clients find the socket at its path: someone may have removed it.
    bool can_be_found() const;
    const std::string &path() const { return path_; }
    // Requests that come from now on are answered under this configuration.
    void use(SnapshotPtr snapshot);
    // Closes the socket and the clients that wait for no answer, the others when they have
    // theirs. `done` is called when all are gone, perhaps at once.
    void drain(std::function<void()> done);

    std::size_t clients() const { return connections_.size(); }

  private:
    // For the connections.
    const Deciders &deciders() const override { return deciders_; }
    Capture &capture() override { return capture_; }
    const SnapshotPtr &snapshot() const override { return snapshot_; }
    UserNames &user_names() override { return user_names_; }
    aaa_transport_msg_t &buffer() override { return *buffer_; }
    std::uint64_t new_login() override { return next_login_++; }
    bool is_draining() const override { return drained_ != nullptr; }
    bool keep(std::unique_ptr<Decision> decision) override;
    void configure(const Request &request, std::function<void(cerrno)> done) override {
        configure_(request, std::move(done));
    }
    void remove(Connection *connection) override;

    void accept_clients();
    bool accept_one();
    void pause();
    bool has_room(const Peer &peer) const;
    bool make_room(const Peer &peer);

    const Deciders deciders_;
    Capture &capture_;
    Configure configure_;
    UserNames user_names_;
    SnapshotPtr snapshot_;
    std::unique_ptr<aaa_transport_msg_t> buffer_;
    std::uint64_t next_login_;

    std::string path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    Transport socket_;
    net::Watch watch_;
    net::Timer retry_;
    std::map<Connection *, std::unique_ptr<Connection>> connections_;
    std::map<uid_t, std::size_t> by_user_;
    std::list<std::unique_ptr<Decision>> without_client_;
    std::function<void()> drained_;
};

}  // namespace service
