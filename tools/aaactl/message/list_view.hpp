// SPDX-License-Identifier: Apache-2.0
//
// The attributes of a received list, secrets masked unless --show-secrets.

#pragma once

#include "aaa/avpair.h"
#include "cli/output.hpp"

namespace aaactl {

// Both accept a null list, which has no attributes.
Json attributes_json(const Output &out, const avlist *list);
void print_attributes(Output &out, const avlist *list);

}  // namespace aaactl
