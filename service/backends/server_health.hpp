// SPDX-License-Identifier: Apache-2.0
//
// Which servers are silent. One table for all clients of all protocols, so that a dead server
// costs one login its time-out and not every one. The time is passed in.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace service {

class ServerHealth {
  public:
    // Nanoseconds of CLOCK_MONOTONIC.
    using Time = std::int64_t;

    enum class State : std::uint8_t {
        kAlive,  // or not known
        kDead,   // asked only when every other one is dead too
        kProbe   // was dead, its time is over, and no one is asking it yet: one request may
    };

    State state(std::string_view server, Time now) const;

    struct Mark {
        Time until = 0;  // dead until then
        bool is_probed = false;
    };
    // Of a server that is not alive; null otherwise.
    const Mark *mark(std::string_view server) const;

    // The servers in the order in which they are to be asked: those that answer and those to
    // be probed in the given order, then the dead ones. A request that begins to ask a server
    // calls asking().
    std::vector<std::size_t> order(const std::vector<std::string> &servers, Time now) const;

    // A request asks the server. When the server is to be probed, the others pass it over for
    // `probe_time`, after which it is probed again unless an outcome was told.
    void asking(std::string_view server, Time now, Time probe_time);
    // The server answered, whatever it said. True when it was dead.
    bool answered(std::string_view server, Time now);
    // Whether it answered any request after a time.
    bool has_answered_since(std::string_view server, Time time) const;
    // All tries of a request were in vain. True when the server is newly marked dead.
    bool silent(std::string_view server, Time now, Time dead_time);
    // Servers that are no longer configured are forgotten.
    void keep_only(const std::function<bool(const std::string &)> &is_configured);

  private:
    std::map<std::string, Mark, std::less<>> dead_;
    std::map<std::string, Time, std::less<>> answered_;  // when last
};

}  // namespace service
