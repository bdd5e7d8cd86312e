// SPDX-License-Identifier: Apache-2.0
//
// Packets of RADIUS without names that may not be shown.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "capture/mask.hpp"

namespace service {

// The value of each User-Name that may not be shown becomes eight asterisks; lengths are adapted. The
// authenticators stay, and do not fit the changed packet. What is no packet, or is damaged, stays as it is.
Masked masked_radius(std::string_view packet, const std::function<bool(const std::string &)> &may_show_name);

}  // namespace service
