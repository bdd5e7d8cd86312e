// SPDX-License-Identifier: Apache-2.0
//
// Questions to RADIUS servers: the time of one at a time, and how many a second with 32 in
// flight, over UDP to a process that only answers, and over UDP and TLS to FreeRADIUS where
// that is installed.
//
//   radius_bench [QUESTIONS]     of each row; default: 20000

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "radius/client.hpp"
#include "radius_responder.hpp"
#ifdef AAA_BENCH_FREERADIUS
#include "radius/freeradius.hpp"
#endif

namespace {

using bench::fail;
using bench::kSecret;

constexpr int kInFlight = 32;

radius::ServerSettings settings_of_responder() {
    radius::ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", bench::start_responder());
    settings.secret = radius::Secret(kSecret);
    return settings;
}

// ---- measuring

radius::Question login() {
    radius::Question question = radius::Question::access();
    if (!question.add(radius::Type::kUserName, "alice") ||
        !question.add(radius::Type::kNasIdentifier, "router-1") ||
        !question.add(radius::Type::kCallingStationId, "192.0.2.7")) {
        fail("no question");
    }
    question.set_password("wonderland");
    return question;
}

// Asks `count` questions with so many in flight, and returns the time of each.
std::vector<net::Time> ask(const radius::ServerSettings &settings, int count, int in_flight) {
    net::Loop loop;
    std::string error;
    const auto client = radius::Client::make(loop, settings, error);
    if (client == nullptr) {
        fail(error);
    }
    std::vector<net::Time> times;
    int asked = 0;
    const std::function<void()> next = [&] {
        const net::Time begin = net::Loop::clock();
        ++asked;
        client->ask(login(), [&, begin](const radius::Outcome &outcome) {
            if (outcome.kind != radius::Outcome::Kind::kAnswer ||
                outcome.answer.code() != radius::Code::kAccessAccept) {
                fail("no accept: " + outcome.text);
            }
            times.push_back(net::Loop::clock() - begin);
            if (asked < count) {
                next();
            }
        });
    };
    for (int i = 0; i < in_flight; ++i) {
        next();
    }
    while (static_cast<int>(times.size()) < asked) {
        loop.run_once(INT64_MAX);
    }
    return times;
}

void row(const char *name, const radius::ServerSettings &settings, int count) {
    ask(settings, 200, 1);  // warms up, and connects
    std::vector<net::Time> times = ask(settings, count, 1);
    std::sort(times.begin(), times.end());
    const auto microseconds = [&](std::size_t at) { return static_cast<double>(times[at]) / 1000; };
    const double median = microseconds(times.size() / 2);
    const double high = microseconds(times.size() * 99 / 100);
    const net::Time begin = net::Loop::clock();
    const std::size_t answers = ask(settings, count, kInFlight).size();
    const double seconds = static_cast<double>(net::Loop::clock() - begin) / 1e9;
    std::printf("%-20s %10.1f %10.1f %14.0f\n", name, median, high, static_cast<double>(answers) / seconds);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 20000;
    if (count < kInFlight || argc > 2) {
        fail("usage: radius_bench [QUESTIONS], at least 32");
    }
    std::printf("%-20s %10s %10s %14s\n", "server", "median us", "p99 us", "per s, 32 at once");
    row("responder, UDP", settings_of_responder(), count);
#ifdef AAA_BENCH_FREERADIUS
    if (!radius_test::FreeRadius::is_installed()) {
        std::printf("%s\n", radius_test::FreeRadius::kMissing);
        return 0;
    }
    const radius_test::FreeRadius server;
    row("FreeRADIUS, UDP", server.authentication(), count);
    row("FreeRADIUS, TLS", server.tls(), count);
#endif
    return 0;
}
