// SPDX-License-Identifier: Apache-2.0
//
// The control socket: shows administrators and their programs what the service does, as lines
// of JSON (docs/monitoring.md). It changes nothing, and shows no secret. Clients are bounded in
// number and memory, and none can delay a login.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "control/connection.hpp"
#include "control/replies.hpp"

namespace service {

class Control {
  public:
    Control(ControlSources sources, Trace &trace);
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    // Opens the socket. A text that says why not; empty when it is open.
    std::string open(const std::string &path);
    // Whether clients find the socket at its path.
    bool can_be_found() const;
    // Has the answer to a request end with the members that the function writes.
    void provide(ControlRequest::Kind kind, ControlFigures figures);

    std::size_t clients() const { return connections_.size(); }

  private:
    std::string bind_socket();
    void give_to_group() const;
    void accept_clients();
    bool accept_one();
    // Why a peer is turned away, as a line for it; empty when it is not.
    std::string refusal(const Peer &peer) const;
    bool may_ask(const Peer &peer) const;
    void show_soon();
    void show_events();
    std::vector<ControlConnection *> present() const;
    void remove(ControlConnection *connection);

    ControlSources sources_;
    Trace &trace_;
    ControlConnection::Host host_;
    std::uint64_t follower_ = 0;
    bool is_told_ = false;  // of new events, in the loop's next round

    std::optional<gid_t> group_;  // aaa, if there is one; looked up once, because that can take long
    std::string path_;
    dev_t device_ = 0;  // of the socket's file, to remove no other one
    ino_t inode_ = 0;
    net::Descriptor socket_;
    net::Watch watch_;
    net::Timer retry_;
    std::map<ControlConnection *, std::unique_ptr<ControlConnection>> connections_;
    std::shared_ptr<int> alive_ = std::make_shared<int>();
};

}  // namespace service
