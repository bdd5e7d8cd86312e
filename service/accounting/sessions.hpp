// SPDX-License-Identifier: Apache-2.0
//
// The open sessions, from the records that open and close them. The service sends interim
// records of them, and closes those whose process has ended without closing them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "net/loop.hpp"
#include "records/record.hpp"

namespace accounting {

struct SessionSettings {
    net::Time interim_every = 0;                // 0: no interim records
    net::Time check_every = 30 * net::kSecond;  // how often a session's process is looked for
    std::size_t most = 10'000;                  // further sessions are recorded, but not kept here
    std::size_t most_bytes = 16 << 20;          // of their records
};

// Called by the loop with the record that opened the session. The service then appends an
// interim record, or a closing one, which ends the session here.
struct SessionCalls {
    std::function<bool(const Record &opened)> is_alive;
    std::function<void(const RecordPointer &opened)> interim;
    std::function<void(const RecordPointer &opened)> ended;
};

class Sessions {
  public:
    Sessions(net::Loop &loop, SessionSettings settings, SessionCalls calls);

    // Records that are on disk, in order. Those of an unknown session change nothing.
    void apply(const RecordPointer &record);
    // Begins to call. Sessions that are open get their interim records spread over the time.
    void start();

    // Another time between interim records; 0: none.
    void set_interim(net::Time every);

    // The record that opened a session; null when the session is not open here.
    RecordPointer find(const std::string &name) const;
    // By sequence.
    std::vector<RecordPointer> list() const;
    std::size_t count() const { return by_sequence_.size(); }
    // Sessions that were not kept because there were too many.
    std::uint64_t overflowed() const { return overflowed_; }

  private:
    struct Open {
        RecordPointer opened;
        net::Time interim_at = 0;
    };

    void open(const RecordPointer &record);
    void close(const std::string &name);
    void check();
    void send_interims();
    void schedule(Open &session, net::Time at);
    void spread_interims();
    void set_check_timer();
    void set_interim_timer();

    net::Loop &loop_;
    SessionSettings settings_;
    SessionCalls calls_;
    bool started_ = false;
    std::map<std::uint64_t, Open> by_sequence_;
    std::unordered_map<std::string, std::uint64_t> by_name_;
    std::set<std::pair<net::Time, std::uint64_t>> interims_;
    std::uint64_t checked_ = 0;  // sessions up to here were looked at in this round
    std::size_t bytes_ = 0;
    std::uint64_t overflowed_ = 0;
    net::Timer check_timer_;
    net::Timer interim_timer_;
};

}  // namespace accounting
