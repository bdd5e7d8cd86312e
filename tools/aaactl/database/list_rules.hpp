// SPDX-License-Identifier: Apache-2.0
//
// Which functions, services and methods method lists can have: what the AAA service asks for, and what
// answers it.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace aaactl {

// The functions that have lists, as words of paths.
const std::vector<std::string> &list_functions();

// Whether an operator can configure the method; the other numbers are internal to the service.
bool is_configurable(uint32_t method);

// Whether the method can answer requests for a function at all: local users keep no accounting records, for
// example.
bool answers_for(const std::string &function, uint32_t method);

// The word under which a service is configured; for a service without one, the word under which the library
// verifies its lists; "" for a service without lists.
std::string service_word_of(uint32_t function, uint32_t service);
// Words of the services for which requests are made.
std::vector<std::string> used_service_words(const std::string &function);

}  // namespace aaactl
