// SPDX-License-Identifier: Apache-2.0
//
// What a client has counted, for one server.
#pragma once

#include <array>
#include <cstdint>

#include "net/loop.hpp"
#include "radius/packet.hpp"

namespace radius {

struct Counters {
    std::uint64_t questions = 0;        // all, those included that failed before they were sent
    std::uint64_t requests = 0;         // packets that were sent for the first time
    std::uint64_t retransmissions = 0;  // and again, the same packet or one with another delay
    std::uint64_t accepts = 0;
    std::uint64_t rejects = 0;
    std::uint64_t challenges = 0;
    std::uint64_t accounting_responses = 0;
    std::uint64_t status_answers = 0;                 // to Status-Server; not among the codes above
    std::array<std::uint64_t, kFaults> dropped = {};  // packets by Fault
    std::uint64_t unexpected = 0;  // packets with an identifier that no request has: late ones
    std::uint64_t silent = 0;      // questions by outcome
    std::uint64_t refused = 0;
    std::uint64_t errors = 0;
    std::uint64_t cancelled = 0;
    std::uint64_t connections = 0;  // attempts, with TLS
    std::uint64_t connection_failures = 0;
    // Smoothed as in RFC 6298, over answers to requests that were sent once; 0 before the first.
    net::Time round_trip = 0;
};

}  // namespace radius
