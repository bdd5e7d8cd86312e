// SPDX-License-Identifier: Apache-2.0
//
// The accounts of the host. Name services may block: for the threads of Workers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace service {

struct SystemAccount {
    std::string hash;
    std::uint32_t privilege = 0;  // 15 for the user 0, else 1
    std::string refusal;          // empty, or why no password lets the user in: expired
};

std::optional<SystemAccount> find_system_account(const std::string &user);

}  // namespace service
