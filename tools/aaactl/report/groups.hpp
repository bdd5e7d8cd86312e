// SPDX-License-Identifier: Apache-2.0
//
// Server groups as they are stored, and as aaad sees their servers.

#pragma once

#include "report/facts.hpp"
#include "report/html.hpp"

namespace aaactl {

void write_groups(Html &page, const Facts &facts);

}  // namespace aaactl
