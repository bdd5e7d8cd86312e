// SPDX-License-Identifier: Apache-2.0
//
// Messages as text. encode reads the exchange form; a '#' begins a comment, and
// what follows from the rest may be omitted:
//
//   kind request                        # "list" without this line
//   record request-40                   # then its fields, zero when omitted
//   type = 3
//   transport0 = zeros(20)
//   list                                # may be omitted before a pair, or at the start
//   name = "request"
//   pair AAA_USERNAME_ATTR "alice\x00" tag=0 flags=0x400 padding=hex:0000
//   pair 4711 hex:0102                  # an attribute that is not in the dictionary
//   pair deleted hex:636f6e3000
//   bytes block zeros(64)               # a part without fields

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/output.hpp"
#include "message/message.hpp"

namespace aaactl {

// The exchange form, with meanings as comments. Masked values cannot be read back.
std::string to_text(const Message &message, bool show_secrets);
// Failure with the number of a malformed line.
Message from_text(std::string_view text);

// For people: every field with its offset and meaning, pairs as a table.
void print_message(Output &out, const Message &message);
void print_list(Output &out, const List &list, size_t offset = 0);

}  // namespace aaactl
