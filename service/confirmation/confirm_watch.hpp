// SPDX-License-Identifier: Apache-2.0
//
// Goes back from a commit of the configuration that no one confirms in time. On a thread of its own, because
// reading and changing the database wait for the disk; the keeper is told of the change by the database, as
// of any other.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "net/descriptor.hpp"
#include "store/watcher.hpp"

namespace service {

class ConfirmWatch {
  public:
    // `alarm` is called on the thread with what is wrong, or "" when it is over. The clock is for tests.
    using Alarm = std::function<void(const std::string &)>;
    explicit ConfirmWatch(Alarm alarm, history::Watcher::Clock clock = history::system_now);
    ~ConfirmWatch();
    ConfirmWatch(const ConfirmWatch &) = delete;
    ConfirmWatch &operator=(const ConfirmWatch &) = delete;

    // False, with a log line, when the system refuses the thread or the descriptor: the service goes on
    // without it.
    bool start();
    void stop();

  private:
    void run();

    Alarm alarm_;
    history::Watcher::Clock clock_;
    net::Descriptor stop_;
    std::thread thread_;
};

}  // namespace service
