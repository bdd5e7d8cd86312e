// SPDX-License-Identifier: Apache-2.0
//
// Addresses of servers, from and to text.
#include "net/address.hpp"

#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <cstring>

namespace net {

std::optional<Address> Address::parse(std::string_view text, std::uint16_t port) {
    if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
        if (text.find(':') == std::string_view::npos) {
            return std::nullopt;
        }
    }
    if (text.empty() || text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(std::string(text).c_str(), nullptr, &hints, &found) != 0) {
        return std::nullopt;
    }
    Address address;
    std::memcpy(&address.storage_, found->ai_addr, found->ai_addrlen);
    address.size_ = found->ai_addrlen;
    freeaddrinfo(found);
    if (address.family() == AF_INET6) {
        reinterpret_cast<sockaddr_in6 *>(&address.storage_)->sin6_port = htons(port);
    } else {
        reinterpret_cast<sockaddr_in *>(&address.storage_)->sin_port = htons(port);
    }
    return address;
}

Address Address::local_of(int socket) {
    Address address;
    address.size_ = sizeof address.storage_;
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&address.storage_), &address.size_) != 0) {
        address = Address();
    }
    return address;
}

std::uint16_t Address::port() const {
    return ntohs(family() == AF_INET6 ? reinterpret_cast<const sockaddr_in6 *>(&storage_)->sin6_port
                                      : reinterpret_cast<const sockaddr_in *>(&storage_)->sin_port);
}

std::string Address::text() const {
    std::array<char, NI_MAXHOST> host;
    if (getnameinfo(get(), size_, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST) != 0) {
        return {};
    }
    const std::string name = host.data();
    return (family() == AF_INET6 ? "[" + name + "]" : name) + ":" + std::to_string(port());
}

}  // namespace net
