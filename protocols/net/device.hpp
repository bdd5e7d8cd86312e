// SPDX-License-Identifier: Apache-2.0
//
// Network devices: the one that a socket is tied to, such as that of a VRF, and the addresses of
// an interface.
#pragma once

#include <optional>
#include <string>

#include "net/address.hpp"

namespace net {

// Ties a socket to a device: its packets leave and arrive there only, by the routes of its VRF. With
// an empty name nothing happens. Empty, or why it cannot be done.
[[nodiscard]] std::string tie_to_device(int socket, const std::string &device);

// The first address of an interface in a family, with port 0, that other systems can answer to.
std::optional<Address> address_of_interface(const std::string &interface, int family);

}  // namespace net
