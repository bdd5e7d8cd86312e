// SPDX-License-Identifier: Apache-2.0

#include "net/device.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace net {

namespace {

// An address without a scope: a link-local one would need the server's link too.
std::optional<Address> usable_address(const sockaddr *address) {
    char text[INET6_ADDRSTRLEN] = "";
    const void *bytes = nullptr;
    if (address->sa_family == AF_INET) {
        bytes = &reinterpret_cast<const sockaddr_in *>(address)->sin_addr;
    } else {
        const in6_addr &six = reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr;
        if (IN6_IS_ADDR_LINKLOCAL(&six)) {
            return std::nullopt;
        }
        bytes = &six;
    }
    return inet_ntop(address->sa_family, bytes, text, sizeof text) != nullptr ? Address::parse(text, 0)
                                                                              : std::nullopt;
}

}  // namespace

std::string tie_to_device(int socket, const std::string &device) {
    if (device.empty()) {
        return "";
    }
    if (device.size() < IFNAMSIZ && setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, device.c_str(),
                                               static_cast<socklen_t>(device.size())) == 0) {
        return "";
    }
    const int error = device.size() < IFNAMSIZ ? errno : ENODEV;
    return "the device " + device + ": " + std::strerror(error) +
           (error == ENODEV ? "; \"ip link\" lists the devices of this system" : "");
}

std::optional<Address> address_of_interface(const std::string &interface, int family) {
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(all, freeifaddrs);
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr != nullptr && one->ifa_addr->sa_family == family && interface == one->ifa_name) {
            if (auto address = usable_address(one->ifa_addr)) {
                return address;
            }
        }
    }
    return std::nullopt;
}

}  // namespace net
