// SPDX-License-Identifier: Apache-2.0

#include "config/opened_keys.hpp"

#include <string.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/cipher.h"

namespace service {

namespace {

constexpr int kReversible = 7;

// Keys in clear text are not used: every member of the group aaa could read them in the database.
std::optional<Secret> open_now(const std::string &sealed) {
    char *opened = pw_decrypt(sealed.c_str(), kReversible);
    if (opened == nullptr) {
        return std::nullopt;
    }
    Secret key{std::string_view(opened)};
    explicit_bzero(opened, std::strlen(opened));
    std::free(opened);
    return key.empty() ? std::nullopt : std::optional(std::move(key));
}

}  // namespace

const OpenedKeys::Known *OpenedKeys::known(const std::string &place, const std::string &sealed) const {
    const auto same_text = std::find_if(known_.begin(), known_.end(),
                                        [&](const auto &entry) { return entry.second.sealed == sealed; });
    const auto found = same_text != known_.end() ? same_text : known_.find(place);
    return found != known_.end() ? &found->second : nullptr;
}

std::optional<OpenedKeys::Key> OpenedKeys::open(const std::string &place, const Secret &sealed) {
    if (auto key = open_now(sealed.text())) {
        next_[place] = {sealed.text(), *key};
        return Key{*std::move(key), false};
    }
    const Known *before = known(place, sealed.text());
    if (before == nullptr) {
        return std::nullopt;
    }
    next_[place] = *before;
    return Key{before->text, true};
}

void OpenedKeys::end(bool is_whole) {
    if (is_whole) {
        known_ = std::move(next_);
    }
    next_.clear();
}

}  // namespace service
