// SPDX-License-Identifier: Apache-2.0
//
// Connected UDP sockets.

#include "radius/udp_socket.hpp"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <utility>
#include "net/device.hpp"

namespace radius {
namespace {

// One round of the loop reads at most so many, so that a flood delays no timer.
constexpr int kPacketsPerRound = 64;

std::string without_port(const net::Address &address) {
    const std::string text = address.text();
    return text.substr(0, text.rfind(':'));
}

}  // namespace

UdpSocket::UdpSocket(net::Loop &loop, net::Descriptor descriptor, const net::Address &server, Calls calls)
    : loop_(loop), server_(server), descriptor_(std::move(descriptor)), calls_(std::move(calls)) {}

std::unique_ptr<UdpSocket> UdpSocket::open(net::Loop &loop, const ServerSettings &settings, Calls calls,
                                           std::string &error, bool &unreachable) {
    const auto failure = [&](const std::string &what) {
        unreachable = is_of_network(errno);
        error = what + ": " + std::strerror(errno);
        return nullptr;
    };
    net::Descriptor descriptor(
        socket(settings.address.family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor) {
        return failure("no socket could be opened");
    }
    if (const std::string fault = net::tie_to_device(descriptor.get(), settings.device); !fault.empty()) {
        error = "requests cannot be sent over " + fault;
        return nullptr;
    }
    if (settings.local && bind(descriptor.get(), settings.local->get(), settings.local->size()) != 0) {
        return failure("requests cannot be sent from " + without_port(*settings.local) +
                       " (\"ip address\" lists the addresses of this system)");
    }
    if (connect(descriptor.get(), settings.address.get(), settings.address.size()) != 0) {
        return failure("requests cannot be sent to " + settings.address.text());
    }
    std::unique_ptr<UdpSocket> made(
        new UdpSocket(loop, std::move(descriptor), settings.address, std::move(calls)));
    made->watch_ = net::Watch(loop, made->descriptor_.get(), EPOLLIN,
                              [socket = made.get()](std::uint32_t) { socket->readable(); });
    if (!made->watch_.usable()) {
        return failure("the socket could not be watched");
    }
    return made;
}

void UdpSocket::show(net::Tap::Way way, std::string_view bytes) const {
    if (loop_.tap() != nullptr) {
        loop_.tap()->datagram({net::Address::local_of(descriptor_.get()), server_}, way, bytes);
    }
}

int UdpSocket::send(std::string_view bytes) {
    if (::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0) {
        show(net::Tap::Way::kSent, bytes);
        return 0;
    }
    switch (errno) {
        case EAGAIN:
        case EINTR:
        case ENOBUFS:
        case ENOMEM:
        case EMSGSIZE:  // the path's limit was learned just now; the next try is sent in parts
            return 0;
        default:
            return errno;
    }
}

bool UdpSocket::is_of_network(int error) {
    switch (error) {
        case ECONNREFUSED:
        case EHOSTUNREACH:
        case ENETUNREACH:
        case EHOSTDOWN:
        case ENETDOWN:
        case ENOPROTOOPT:  // the host says that it has no UDP
            return true;
        default:
            return false;
    }
}

void UdpSocket::readable() {
    std::array<char, kMaxPacket> buffer;
    for (int i = 0; i < kPacketsPerRound; ++i) {
        const ssize_t length = recv(descriptor_.get(), buffer.data(), buffer.size(), 0);
        if (length >= 0) {
            show(net::Tap::Way::kReceived, {buffer.data(), static_cast<std::size_t>(length)});
            calls_.received(*this, {buffer.data(), static_cast<std::size_t>(length)});
        } else if (is_of_network(errno)) {
            calls_.failed(*this, errno);
        } else if (errno != EINTR) {
            return;
        }
    }
}

}  // namespace radius
