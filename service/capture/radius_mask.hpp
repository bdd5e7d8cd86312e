// SPDX-License-Identifier: Apache-2.0
//
// Packets of RADIUS without names that may not be shown.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "capture/mask.hpp"

namespace service {

// The value of each User-Name that may not be shown becomes eight asterisks, and so does the name of the
// request in texts of servers; lengths are adapted. The authenticators stay, and do not fit the changed
// packet. Of what is no packet, or is damaged, all else stays as it is.
Masked masked_radius(std::string_view packet, const ShownNames &names);

// The User-Name of a packet; "" without one.
std::string radius_user(std::string_view packet);

}  // namespace service
