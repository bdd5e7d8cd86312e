// SPDX-License-Identifier: Apache-2.0
//
// The service: all its parts, and its signals.
#pragma once

#include <memory>

#include "backends/local.hpp"
#include "capture/capture.hpp"
#include "config/keeper.hpp"
#include "confirmation/confirm_watch.hpp"
#include "control/control.hpp"
#include "groups/groups.hpp"
#include "journal/recorder.hpp"
#include "listener/listener.hpp"
#include "main/notify.hpp"
#include "main/options.hpp"
#include "monitoring/monitor.hpp"

namespace service {

class Daemon {
  public:
    // The signals SIGTERM, SIGINT and SIGHUP must be blocked in all threads.
    explicit Daemon(const Options &options);
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Serves until a signal ends it. Returns the exit status.
    int run();

  private:
    bool watch_signals();
    void on_signal();
    void reload();
    void stop();
    void take(SnapshotPtr snapshot);
    void open_control();
    void look_for_sockets();
    void configure(const Request &request, std::function<void(cerrno)> done);

    Options options_;
    Notify notify_;
    net::Loop loop_;
    Trace trace_;
    Lockout lockout_;
    Turns turns_{loop_, lockout_};
    Groups groups_;
    Recorder recorder_;
    Backends backends_;
    std::unique_ptr<Keeper> keeper_;
    ConfirmWatch confirmation_{[this](const std::string &text) { keeper_->set_alarm("confirm", text); }};
    std::unique_ptr<Workers> workers_;
    std::unique_ptr<Deciders> deciders_;
    Capture capture_{loop_, trace_.names(), "aaad " AAA_VERSION};
    std::unique_ptr<Listener> listener_;
    std::unique_ptr<Monitor> monitor_;
    std::unique_ptr<Control> control_;
    SnapshotPtr present_;
    net::Descriptor signals_;
    net::Watch signal_watch_;
    net::Timer last_call_;
    net::Timer next_look_;
    net::Time next_keys_ = 0;
    bool stopping_ = false;
};

}  // namespace service
