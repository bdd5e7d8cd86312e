// SPDX-License-Identifier: Apache-2.0
//
// The accounts of the host. Name services may block: for the threads of Workers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace service {

enum class AccountState : std::uint8_t {
    kValid,
    kPasswordExpired,  // or an administrator wants it changed
    kAccountExpired,   // or its password has expired long ago
};

struct SystemAccount {
    std::string hash;
    std::uint32_t privilege = 0;  // 15 for the user 0, else 1
    AccountState state = AccountState::kValid;
};

struct AccountLookup {
    std::optional<SystemAccount> account;
    // Why it is not known what a login of this user needs; empty: it is known, or there is no such user.
    std::string fault;
};
AccountLookup find_system_account(const std::string &user);

// The dates of an account as shadow(5) has them, in days since 1970; -1: none.
struct AccountDates {
    long changed = -1;   // the password; 0: it has to be changed
    long most = -1;      // days that a password is good for
    long inactive = -1;  // days after them in which it can still be changed
    long expires = -1;   // the account
};
AccountState state_on(long day, const AccountDates &dates);

}  // namespace service
