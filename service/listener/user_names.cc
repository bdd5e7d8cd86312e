// SPDX-License-Identifier: Apache-2.0

#include "listener/user_names.hpp"

#include <pwd.h>

#include <memory>
#include <utility>
#include <vector>

namespace service {

namespace {

constexpr net::Time kKept = 60 * net::kSecond;
constexpr std::size_t kMostKept = 1024;

std::string look_up(uid_t uid) {
    std::vector<char> room(16384);
    passwd entry{};
    passwd *found = nullptr;
    return getpwuid_r(uid, &entry, room.data(), room.size(), &found) == 0 && found != nullptr ? found->pw_name
                                                                                              : "";
}

}  // namespace

void UserNames::find(uid_t uid, Done done) {
    const auto known = known_.find(uid);
    if (known != known_.end() && known->second.until > loop_.now()) {
        done(known->second.name);
        return;
    }
    auto name = std::make_shared<std::string>();
    const bool accepted = workers_.run([uid, name] { *name = look_up(uid); },
                                       [this, uid, name, done] {
                                           if (known_.size() >= kMostKept) {
                                               known_.clear();
                                           }
                                           known_[uid] = {*name, loop_.now() + kKept};
                                           done(*name);
                                       });
    if (!accepted) {
        done("");
    }
}

}  // namespace service
