// SPDX-License-Identifier: Apache-2.0
//
// Requests of the control socket: a line of JSON each.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/trace.hpp"

namespace service {

// Of requests and answers. A change that older programs would misunderstand raises it; new
// members do not.
inline constexpr std::uint64_t kControlVersion = 1;

struct ControlRequest {
    enum class Kind : std::uint8_t { kStatus, kServers, kSessions, kAccounting, kTrace, kCapture };

    Kind kind = Kind::kStatus;
    std::optional<std::string> user;  // of a trace and a capture
    // Of a trace: which events.
    std::optional<LoginId> id;
    bool mine = false;                     // of requests of the process that asks for the trace
    std::optional<std::uint64_t> after;    // kept events with a higher number
    std::optional<std::uint64_t> seconds;  // kept events of so many seconds
    bool live = true;                      // goes on with new events
    // Of a capture: what it holds besides messages without their secrets.
    bool secrets = false, servers = false, keys = false;
};
const char *request_word(ControlRequest::Kind kind);

// Without a result `error` says what is wrong. It quotes nothing of the line.
std::optional<ControlRequest> read_control_request(std::string_view line, std::string &error);

}  // namespace service
