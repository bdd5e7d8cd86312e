// SPDX-License-Identifier: Apache-2.0
//
// Addresses of servers. Names are not resolved: a name server that does not answer must
// not delay a login, and an attacker who answers for it must not receive passwords.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace net {

class Address {
  public:
    // An IPv4 or IPv6 address as text, the latter also in brackets and with an interface
    // ("fe80::1%eth0").
    static std::optional<Address> parse(std::string_view text, std::uint16_t port);

    // That of this side of a socket; without one, of no family.
    static Address local_of(int socket);

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage_); }
    socklen_t size() const { return size_; }
    int family() const { return storage_.ss_family; }
    std::uint16_t port() const;
    // "192.0.2.1:1812" or "[2001:db8::1]:1812".
    std::string text() const;

  private:
    sockaddr_storage storage_ = {};
    socklen_t size_ = 0;
};

}  // namespace net
