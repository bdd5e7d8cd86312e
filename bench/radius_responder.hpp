// SPDX-License-Identifier: Apache-2.0
//
// A process that only answers RADIUS packets, so that a benchmark measures the client and not a server: each
// request is accepted, with a Message-Authenticator and a Reply-Message.

#pragma once

#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "radius/client.hpp"

namespace bench {

inline constexpr char kSecret[] = "testing123";

[[noreturn]] inline void fail(const std::string &what) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what.c_str());
    std::exit(1);
}

// A process that ends with this one. 0 in the child.
inline pid_t start_process() {
    const pid_t process = fork();
    if (process < 0) {
        fail("no process");
    }
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    return process;
}

// A socket on loopback, and its port.
inline std::pair<int, std::uint16_t> open_server() {
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(server, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        getsockname(server, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        fail("no socket");
    }
    return {server, ntohs(address.sin_port)};
}

inline std::string answer_to(std::string_view request) {
    const bool is_record = request[0] == static_cast<char>(radius::Code::kAccountingRequest);
    std::string packet(radius::kHeadSize, '\0');
    packet[0] =
        static_cast<char>(is_record ? radius::Code::kAccountingResponse : radius::Code::kAccessAccept);
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

[[noreturn]] inline void answer_for_ever(int socket) {
    std::array<char, radius::kMaxPacket> buffer;
    for (;;) {
        sockaddr_in from;
        socklen_t from_size = sizeof from;
        const ssize_t size = recvfrom(socket, buffer.data(), buffer.size(), 0,
                                      reinterpret_cast<sockaddr *>(&from), &from_size);
        if (size >= static_cast<ssize_t>(radius::kHeadSize)) {
            const std::string answer = answer_to({buffer.data(), static_cast<std::size_t>(size)});
            sendto(socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&from), from_size);
        }
    }
}

// Its port; its secret is kSecret.
inline std::uint16_t start_responder() {
    const auto [server, port] = open_server();
    if (start_process() == 0) {
        answer_for_ever(server);
    }
    close(server);
    return port;
}

}  // namespace bench
