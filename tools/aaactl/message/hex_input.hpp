// SPDX-License-Identifier: Apache-2.0
//
// Bytes that somebody hands in: a file or standard input, binary or as
// hexadecimal text of the looser kinds that tools print.

#pragma once

#include <string>
#include <string_view>

namespace aaactl {

// A whole file, or standard input for "-". Failure when it cannot be read or is
// beyond 64 MiB.
std::string read_input(const std::string &file);

// Hexadecimal text to bytes: digits in pairs, with white space, commas, colons,
// dashes and 0x between them as one likes. What follows '#', ';' or '|' is a
// remark. Lines of dumps are understood: an offset of four digits or more with a
// colon (xxd: characters follow two blanks behind the bytes), or with two blanks
// (hexdump -Cv) where it is the number of bytes so far. Failure with the line's
// number for anything else.
std::string bytes_of_hex(std::string_view text);

// Whether bytes can only be meant as text: messages always hold zero bytes.
bool looks_like_text(std::string_view bytes);

}  // namespace aaactl
