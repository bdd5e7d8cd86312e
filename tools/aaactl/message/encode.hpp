// SPDX-License-Identifier: Apache-2.0
//
// The descriptions that encode reads.

#pragma once

#include <string>

#include "message/message.hpp"

namespace aaactl {

// The message of a description in the form "text" or "json"; "auto" detects the form. Failure(bad_input) for
// a malformed description.
Message message_of(const std::string &description, const std::string &form = "auto");

}  // namespace aaactl
