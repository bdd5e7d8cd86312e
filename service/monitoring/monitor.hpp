// SPDX-License-Identifier: Apache-2.0
//
// The service's figures, and the socket that a collector reads them from. What is counted
// where it happens is copied when someone reads; requests and answers of servers are told.
//
// No label ever holds what a client chose, such as a user name: labels are of the
// configuration, or words of the service.
#pragma once

#include <memory>
#include <string>

#include "config/keeper.hpp"
#include "decision/answer.hpp"
#include "groups/groups.hpp"
#include "journal/recorder.hpp"
#include "listener/listener.hpp"
#include "metrics/registry.hpp"
#include "metrics/server.hpp"

namespace service {

// What figures are taken from. All of it must live longer than the monitor.
struct Sources {
    Groups &groups;
    const Recorder &recorder;
    const Lockout &lockout;
    const Turns &turns;
    Workers &workers;
    const Listener &listener;
    const Keeper &keeper;
};

class Monitor {
  public:
    Monitor(net::Loop &loop, const Sources &sources);
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    // The configuration from now on. The socket moves when its settings have changed. One that
    // cannot be made costs a log line, and nothing else.
    void use(const SnapshotPtr &snapshot);

    void answered(const Question &question, const Answer &answer, net::Time took);
    void server_answered(const ServerClient &server, Use use, ServerResult::Kind kind, net::Time took);

    std::string text() const { return registry_.text(); }

  private:
    void open_socket();
    void take();

    net::Loop &loop_;
    const Sources sources_;
    metrics::Registry registry_;
    SnapshotPtr snapshot_;
    MetricsSettings settings_;
    std::unique_ptr<metrics::Server> server_;
};

}  // namespace service
