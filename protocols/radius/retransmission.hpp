// SPDX-License-Identifier: Apache-2.0
//
// How long a request waits for its answer before it is sent again (RFC 5080, 2.2.1).
#pragma once

#include "net/loop.hpp"
#include "radius/settings.hpp"

namespace radius {

// The wait after a try; `previous` is the one before, 0 for the first try. `random` is
// between -1 and 1 and changes the wait by up to a tenth, so that clients whose server was
// silent do not all come back at the same moment.
net::Time wait_after_try(const ServerSettings &settings, net::Time previous, double random);

// A random number between -1 and 1. Safe in any thread.
double random_fraction();

}  // namespace radius
