// SPDX-License-Identifier: Apache-2.0
//
// Questions to RADIUS servers: the time of one at a time, and how many a second with 32 in
// flight, over UDP to a process that only answers, and over UDP and TLS to FreeRADIUS where
// that is installed.
//
//   radius_bench [QUESTIONS]     of each row; default: 20000

#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "radius/client.hpp"
#ifdef AAA_BENCH_FREERADIUS
#include "radius/freeradius.hpp"
#endif

namespace {

constexpr char kSecret[] = "testing123";
constexpr int kInFlight = 32;

[[noreturn]] void fail(const std::string &what) {
    std::fprintf(stderr, "radius_bench: %s\n", what.c_str());
    std::exit(1);
}

// ---- the process that answers

std::string accept_of(std::string_view request) {
    std::string packet(radius::kHeadSize, '\0');
    packet[0] = static_cast<char>(radius::Code::kAccessAccept);
    packet[1] = request[1];
    packet.replace(4, radius::kDigestSize, request.substr(4, radius::kDigestSize));
    packet += "\x50\x12" + std::string(radius::kDigestSize, '\0') + "\x12\x07Hello";
    packet[3] = static_cast<char>(packet.size());
    radius::Digest digest;
    bool made = radius::hmac_md5(kSecret, {packet}, digest);
    packet.replace(radius::kHeadSize + radius::kAttributeHead, radius::kDigestSize, radius::view_of(digest));
    made = made && radius::md5({packet, kSecret}, digest);
    packet.replace(4, radius::kDigestSize, radius::view_of(digest));
    return made ? packet : std::string();
}

[[noreturn]] void answer_for_ever(int socket) {
    std::array<char, radius::kMaxPacket> buffer;
    for (;;) {
        sockaddr_in from;
        socklen_t from_size = sizeof from;
        const ssize_t size = recvfrom(socket, buffer.data(), buffer.size(), 0,
                                      reinterpret_cast<sockaddr *>(&from), &from_size);
        if (size >= static_cast<ssize_t>(radius::kHeadSize)) {
            const std::string answer = accept_of({buffer.data(), static_cast<std::size_t>(size)});
            sendto(socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&from), from_size);
        }
    }
}

radius::ServerSettings start_responder() {
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(server, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        getsockname(server, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        fail("no socket");
    }
    const pid_t process = fork();
    if (process < 0) {
        fail("no process");
    }
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        answer_for_ever(server);
    }
    close(server);
    radius::ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", ntohs(address.sin_port));
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
    row("responder, UDP", start_responder(), count);
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
