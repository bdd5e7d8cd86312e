// SPDX-License-Identifier: Apache-2.0

#include "backends/system_accounts.hpp"

#include <pwd.h>
#include <shadow.h>
#include <string.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "config/users.hpp"

namespace service {

namespace {

constexpr std::size_t kMostRoom = 1 << 20;

// Calls a reentrant lookup with more and more room. False when there is no such entry.
template <typename Entry, typename Lookup>
bool look_up(Lookup lookup, const std::string &user, Entry &entry, std::vector<char> &room) {
    for (room.resize(4096); room.size() <= kMostRoom; room.resize(room.size() * 4)) {
        Entry *found = nullptr;
        const int error = lookup(user.c_str(), &entry, room.data(), room.size(), &found);
        if (error != ERANGE) {
            return found != nullptr;
        }
    }
    return false;
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

std::optional<SystemAccount> find_system_account(const std::string &user) {
    std::vector<char> room;
    passwd entry{};
    if (!is_user_name(user) || !look_up(getpwnam_r, user, entry, room)) {
        return std::nullopt;
    }
    SystemAccount account;
    account.privilege = entry.pw_uid == 0 ? kHighestPrivilege : 1;
    account.hash = entry.pw_passwd != nullptr ? entry.pw_passwd : "";
    std::vector<char> shadow_room;
    spwd shadow{};
    if (look_up(getspnam_r, user, shadow, shadow_room)) {
        account.hash = shadow.sp_pwdp != nullptr ? shadow.sp_pwdp : "";
        account.state =
            state_on(today(), {shadow.sp_lstchg, shadow.sp_max, shadow.sp_inact, shadow.sp_expire});
        explicit_bzero(shadow_room.data(), shadow_room.size());
    }
    return account;
}

}  // namespace service
