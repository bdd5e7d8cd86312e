// SPDX-License-Identifier: Apache-2.0
//
// The enumerations of the AAA service as words of the command line and of output.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace aaactl {

// A service by its name ("login", "exec", "cmd", ...) or number, 1 to 31.
std::optional<uint32_t> service_number(std::string_view word);
// Its name, or "service N".
std::string service_name(uint32_t service);
// All services that have a name, in the order of their numbers.
const std::vector<std::string> &service_names();

// "authentication", "authorization" or "accounting"; others: nullopt.
std::optional<uint32_t> function_number(std::string_view word);

// A method of a list: its display name where it has one, else "method N".
std::string method_word(uint32_t method);
// The inverse, numbers included.
std::optional<uint32_t> method_number(std::string_view word);

// "PASS", "FAIL", ...; nullopt for an unknown number.
std::optional<std::string> status_name(uint32_t status);

}  // namespace aaactl
