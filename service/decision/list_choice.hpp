// SPDX-License-Identifier: Apache-2.0
//
// Which method list a request goes through: the one that it names, or "default", of its
// function and service; found as the library finds it.
#pragma once

#include <string>

#include "backends/backend.hpp"

namespace service {

struct ListChoice {
    std::string path;                  // "authentication/login/default"
    const MethodList *list = nullptr;  // null when there is none; `why` then says what to do
    std::string why;
};

ListChoice choose_list(const Snapshot &snapshot, const Question &question);

// The word under which lists for a service are configured; empty when there are none.
std::string service_word(Function function, std::uint32_t service);

}  // namespace service
