// SPDX-License-Identifier: Apache-2.0

#include "backends/system_accounts.hpp"

#include <pwd.h>
#include <shadow.h>
#include <string.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "config/users.hpp"

namespace service {

namespace {

constexpr std::size_t kMostRoom = 1 << 20;

// Calls a reentrant lookup, with a larger buffer each time it asks for one. The error is also 0
// when the entry does not exist.
template <typename Entry, typename Lookup>
bool look_up(Lookup lookup, const std::string &user, Entry &entry, std::vector<char> &room, int &error) {
    error = ERANGE;
    for (room.resize(4096); error == ERANGE && room.size() <= kMostRoom; room.resize(room.size() * 4)) {
        Entry *found = nullptr;
        error = lookup(user.c_str(), &entry, room.data(), room.size(), &found);
        if (found != nullptr) {
            return true;
        }
    }
    // getpwnam(3): with these some name services say that there is no such entry.
    if (error == ENOENT || error == ESRCH || error == EBADF || error == EPERM) {
        error = 0;
    }
    return false;
}

std::string fault_of(const char *what, int error) {
    return std::string(what) + " cannot be read" +
           (error != 0 ? std::string(": ") + std::strerror(error) : "");
}

// passwd(5): the password is in /etc/shadow.
bool is_shadowed(const std::string &hash) {
    return hash == "x";
}

// Days since 1970.
long today() {
    return static_cast<long>(time(nullptr) / 86400);
}

}  // namespace

// As the host's own login programs see it.
AccountState state_on(long day, const AccountDates &dates) {
    if (dates.expires >= 0 && day >= dates.expires) {
        return AccountState::kAccountExpired;
    }
    if (dates.changed == 0) {
        return AccountState::kPasswordExpired;
    }
    const long age = day - dates.changed;
    if (dates.changed < 0 || dates.most < 0 || age <= dates.most) {
        return AccountState::kValid;
    }
    return dates.inactive >= 0 && age - dates.most > dates.inactive ? AccountState::kAccountExpired
                                                                    : AccountState::kPasswordExpired;
}

AccountLookup find_system_account(const std::string &user) {
    std::vector<char> room;
    passwd entry{};
    int error = 0;
    if (!is_user_name(user)) {
        return {};
    }
    if (!look_up(getpwnam_r, user, entry, room, error)) {
        return {{}, error != 0 ? fault_of("the accounts of this host", error) : ""};
    }
    SystemAccount account;
    account.privilege = entry.pw_uid == 0 ? kHighestPrivilege : 1;
    account.hash = entry.pw_passwd != nullptr ? entry.pw_passwd : "";
    std::vector<char> shadow_room;
    spwd shadow{};
    if (look_up(getspnam_r, user, shadow, shadow_room, error)) {
        account.hash = shadow.sp_pwdp != nullptr ? shadow.sp_pwdp : "";
        account.state =
            state_on(today(), {shadow.sp_lstchg, shadow.sp_max, shadow.sp_inact, shadow.sp_expire});
        explicit_bzero(shadow_room.data(), shadow_room.size());
    } else if (error != 0 || is_shadowed(account.hash)) {
        // Where several name services are asked, the last one hides that the first may not read.
        return {{}, fault_of("the shadow entry of the account", error)};
    }
    return {std::move(account), {}};
}

}  // namespace service
