// SPDX-License-Identifier: Apache-2.0
//
// Input bytes: a file or standard input, binary or hexadecimal text as other
// tools print it.

#pragma once

#include <string>
#include <string_view>

namespace aaactl {

// A whole file, or standard input for "-". Failure when it cannot be read or is
// larger than 64 MiB.
std::string read_input(const std::string &file);

// Hexadecimal text to bytes: digits in pairs, with any white space, commas,
// colons, dashes and 0x between them. '#', ';' and '|' begin a comment. Lines of
// dumps are accepted: an offset of four digits or more, followed by a colon (xxd:
// two blanks after the bytes, then characters), or by two blanks (hexdump -Cv) if
// it is the number of bytes so far. Failure with the line's number for anything
// else.
std::string bytes_of_hex(std::string_view text);

// Whether the bytes can only be text: every message contains zero bytes.
bool looks_like_text(std::string_view bytes);

}  // namespace aaactl
