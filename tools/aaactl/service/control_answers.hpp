// SPDX-License-Identifier: Apache-2.0
//
// What answers of the control socket look like. A program that is not aaad may listen there.

#pragma once

#include <string>
#include <string_view>

#include "cli/json.hpp"

namespace aaactl {

// Failure(bad_input) unless a line is JSON; of any types.
Json parsed_answer(const std::string &line, const std::string &socket);

// Failure(bad_input) unless a document is the reply to a request: an object with the members that every
// version sends, and no member of a type that this program does not expect. Members that it does not know
// are those of a later version.
void check_reply(const Json &document, std::string_view request, const std::string &socket);

// The same for an event of a trace.
void check_event(const Json &document, const std::string &socket);

}  // namespace aaactl
