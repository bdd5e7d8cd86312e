// SPDX-License-Identifier: Apache-2.0
//
// Goes back from a commit of the configuration that no one confirms in time. On a thread of its own, because
// reading and changing the database wait for the disk; the keeper is told of the change by the database, as
// of any other.
#pragma once

#include <memory>
#include <thread>
#include <vector>

#include "config/alarms.hpp"
#include "net/descriptor.hpp"
#include "store/watcher.hpp"

namespace service {

class ConfirmWatch {
  public:
    // The clock is for tests.
    explicit ConfirmWatch(history::Watcher::Clock clock = history::system_now);
    ~ConfirmWatch();
    ConfirmWatch(const ConfirmWatch &) = delete;
    ConfirmWatch &operator=(const ConfirmWatch &) = delete;

    // False, with a log line, when the system refuses the thread or the descriptor: the service goes on
    // without it.
    bool start();
    void stop();

    // What is wrong now; in any thread.
    std::vector<Alarm> alarms() const { return alarms_.all(); }

  private:
    void run();

    history::Watcher::Clock clock_;
    Alarms alarms_;
    net::Descriptor stop_;
    std::thread thread_;
};

}  // namespace service
