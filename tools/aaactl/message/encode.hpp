// SPDX-License-Identifier: Apache-2.0
//
// What encode reads.

#pragma once

#include <string>

#include "message/message.hpp"

namespace aaactl {

// The message that a description makes: of the form "text" or "json", or with "auto" of the one that it looks
// like. Failure(bad_input) for any description that is none.
Message message_of(const std::string &description, const std::string &form = "auto");

}  // namespace aaactl
