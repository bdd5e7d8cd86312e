// SPDX-License-Identifier: Apache-2.0
//
// Texts of servers. They end on terminals, so what could control one is replaced: an escape
// sequence must not rewrite what the user has on the screen.
#pragma once

#include <string>
#include <string_view>

namespace service {

// For the user: line ends and tabs stay. A longer text than fits into an answer is cut, and
// ends in "...".
std::string text_for_user(std::string_view text);
// For a line of the log or the trace.
std::string text_for_log(std::string_view text);

}  // namespace service
