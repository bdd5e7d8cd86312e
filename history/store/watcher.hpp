// SPDX-License-Identifier: Apache-2.0
//
// Reverts commits that are not confirmed in time. Any number of watchers may run, on any number of machines:
// the database lets one of them do it.
#pragma once

#include <functional>
#include <string>

#include "store/revert.hpp"

namespace history {

class Watcher {
  public:
    struct Reports {
        // A commit waits, and until when; nothing waits any more: "".
        std::function<void(const std::string &)> waits = [](const std::string &) {};
        std::function<void(const Reverted &)> reverted = [](const Reverted &) {};
        // Why it cannot be done now; it is tried again. "" when it can be done again. Each text once.
        // `known`: a commit waits, as far as it is known; otherwise only the database is away.
        std::function<void(const std::string &, bool known)> fails = [](const std::string &, bool) {};
    };
    using Clock = std::function<Now()>;

    Watcher(Author author, Reports reports, Clock clock = system_now);
    ~Watcher();
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    // Watches until the descriptor is readable.
    void run(int stop);
    // Looks once, and reverts what is due. Milliseconds until it has to look again, at least 1; nothing: when
    // the database tells of a change. Throws Error.
    std::optional<std::int64_t> look();

  private:
    bool connect();
    void disconnect();
    void report_failure(const std::string &text, bool known);
    std::int64_t next_retry();
    std::int64_t left_of(const Waiting &waiting, const Now &now);

    Author author_;
    Reports reports_;
    Clock clock_;
    sysdb_conn_t cfg_ = 0;
    std::int32_t channel_ = -1;
    std::uint64_t notification_ = 0;
    std::optional<Waiting> seen_;  // of another machine
    std::int64_t seen_at_ = 0;     // milliseconds since the start of this one
    std::string told_;
    std::string failed_;
    std::int64_t retry_ = 0;  // milliseconds; grows with each failure
};

// "2026-11-22 20:15:30 UTC"
std::string time_text(std::int64_t seconds);

}  // namespace history
