// SPDX-License-Identifier: Apache-2.0
//
// The place of one client in the trace. It takes events from the ring when the client can be
// sent some, so a slow client needs no memory: what the ring has dropped meanwhile is counted.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "base/trace.hpp"
#include "control/request.hpp"

namespace service {

class TraceFollower {
  public:
    // `client_pid` is the process that asks, as the service sees it.
    TraceFollower(const Trace &trace, ControlRequest request, std::int32_t client_pid, std::int64_t now);

    // Appends lines until the text has so many bytes, or there is no event left.
    void append_to(std::string &out, std::size_t most);
    // Whether there will be no further line.
    bool has_ended() const { return has_ended_; }

  private:
    bool matches(const TraceEvent &event);

    const Trace &trace_;
    const ControlRequest request_;
    const std::int32_t client_pid_;
    std::uint64_t next_;  // event
    std::uint64_t end_;   // of a trace that is not live
    std::uint64_t lost_ = 0;
    bool has_ended_ = false;
    std::deque<LoginId> mine_;  // the newest of this client's own requests
};

}  // namespace service
