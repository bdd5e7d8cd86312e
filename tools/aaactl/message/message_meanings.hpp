// SPDX-License-Identifier: Apache-2.0
//
// The meanings of numbers in messages; "" for a number without a name.

#pragma once

#include <cstdint>
#include <string>

#include "message/message.hpp"

namespace aaactl {

std::string meaning_of_message_type(uint64_t value, uint32_t type);
// The word at offset 32 of a request, whose meaning depends on the type.
std::string meaning_of_parameter(uint64_t value, uint32_t type);
std::string meaning_of_result(uint64_t value, uint32_t type);

// "updated", "print =", ... of a pair's flags; bits without a meaning as 0x...
std::vector<std::string> flag_names(uint32_t flags);

// The meaning of a pair's value: the name of an enumerator, a time, the names of
// a method list.
std::string meaning_of_value(const Pair &pair);

}  // namespace aaactl
