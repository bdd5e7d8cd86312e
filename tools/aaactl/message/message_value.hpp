// SPDX-License-Identifier: Apache-2.0
//
// Values in messages as text and back. Each is printed in one form, chosen by its
// type and its bytes; every form is accepted.
//
//   number   16, 0x10      four bytes of an integer type
//   address  192.0.2.7     four bytes of an IPv4 address type
//   text     "alice\x00"   bytes as they are: \xNN \n \t \r \\ \" as in output
//   hex      hex:00ff
//   zeros    zeros(20)     as many zero bytes
//   masked   ********      a secret that was not shown; it cannot be read back

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "masks/masks.hpp"
#include "message/message.hpp"

namespace aaactl {

// Why a value is malformed; the caller adds the place and throws a Failure.
struct Refused {
    std::string why;
};

enum class ValueForm { number, address, text, hex };
ValueForm form_of(const Pair &pair);

uint32_t network_number(std::string_view four_bytes);
std::string network_bytes(uint32_t number);

// The value in its form, without regard to secrets.
std::string value_text(const Pair &pair);
// The value as it may be shown, unless `show_secrets`: masked when it is a secret; of commands and texts the
// secrets alone, and what follows their end. `mask` is for the pairs of one list, in their order.
struct Shown {
    std::string text;
    bool masked = false;
};
Shown shown_value(const Pair &pair, service::TextMask &mask, bool show_secrets);
// The pad and other bytes that were not written on purpose, masked unless they are zero.
Shown shown_leftover(std::string_view bytes, bool show_secrets);

std::string bytes_text(std::string_view bytes);  // zeros(N) or hex:...
std::string quoted(std::string_view text);

// Parsers; they throw Refused.
std::string unquoted(std::string_view token);
std::string hex_bytes(std::string_view digits);
std::string bytes_of(std::string_view token);                 // text, hex or zeros
std::string value_of(std::string_view token, uint32_t type);  // every form
uint64_t number_in(std::string_view token, uint64_t most);
std::optional<uint32_t> address_of(std::string_view dotted);

}  // namespace aaactl
