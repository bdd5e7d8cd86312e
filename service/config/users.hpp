// SPDX-License-Identifier: Apache-2.0
//
// The file of local users. A row is NAME:HASH:PRIVILEGE, with ":COMMANDS" where the user may
// run only some commands: shell patterns, separated by commas. Without them a user of
// privilege 15 may run every command, others none. The names $enable and $line are the
// secrets of the methods "enable" and "line": they are not users, because no name begins
// with '$'. They are here and not in the system database, because members of the group aaa
// may read that, and a hash can be searched for its password.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/text_file.hpp"

namespace service {

inline constexpr std::uint32_t kHighestPrivilege = 15;

struct LocalUser {
    std::string hash;
    std::uint32_t privilege = 0;
    std::optional<std::vector<std::string>> commands;

    // A hash that begins with '!' or '*': the user is known, but no password fits.
    bool is_locked() const { return hash.starts_with('!') || hash.starts_with('*'); }
    bool may_run(const std::string &command) const;
};

struct Users {
    std::map<std::string, LocalUser, std::less<>> users;
    std::map<std::uint32_t, LocalUser> enable;  // by privilege
    std::optional<LocalUser> line;
    std::string setting;  // of the first hash: what an unknown user's password is hashed with

    const LocalUser *find(std::string_view name) const;
};

// Reads the text of a file. Faults are appended; the users are those of the sound lines.
Users parse_users(std::string_view text, std::vector<Fault> &faults);

// Whether a name may be that of a user: 1 to 253 visible characters without ':' and blanks
// that does not begin with '$' or '#'.
bool is_user_name(std::string_view name);

}  // namespace service
