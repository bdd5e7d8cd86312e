// SPDX-License-Identifier: Apache-2.0
//
// What has come of asking one server, for one use: for administrators and monitoring.
#pragma once

#include <cstdint>
#include <string>

#include "net/loop.hpp"

namespace service {

struct ServerFigures {
    std::uint64_t asked = 0;          // requests
    std::uint64_t tries = 0;          // how often these were sent, as far as they have ended
    std::uint64_t answers = 0;        // of these requests
    std::uint64_t silent = 0;         // time-outs
    std::uint64_t unreachable = 0;    // the network said so
    std::uint64_t errors = 0;         // faulty answers, lost connections
    std::uint64_t overloads = 0;      // not asked: too much was under way
    std::uint64_t probes = 0;         // requests that ask only whether it answers; not in `asked`
    std::uint64_t probe_answers = 0;  // of these
    net::Time last_round_trip = 0;    // of an answer to the first try; 0 before the first
    net::Time round_trip = 0;         // the same, smoothed by an eighth
    net::Time last_answer = 0;        // when; 0: never
    net::Time since =
        net::Loop::clock();  // when it was found to be up or dead; first: when it was configured
    std::string why;         // it is dead
    std::string failure;     // of the last request; empty: it was answered

    void answered(net::Time time, unsigned tries_made) {
        ++answers;
        failure.clear();
        last_answer = net::Loop::clock();
        // After a second try no one knows which one is answered.
        if (tries_made == 1 && time > 0) {
            last_round_trip = time;
            round_trip += round_trip == 0 ? time : (time - round_trip) / 8;
        }
    }
    void became_dead(const std::string &reason) {
        since = net::Loop::clock();
        why = reason;
    }
    void became_alive() {
        since = net::Loop::clock();
        why.clear();
        failure.clear();
    }
};

}  // namespace service
