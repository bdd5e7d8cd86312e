// SPDX-License-Identifier: Apache-2.0

#include "base/known_names.hpp"

#include <utility>

#include "masks/name_mask.hpp"

namespace service {

namespace {

constexpr std::string_view kUnknown = "(unknown name)";

}  // namespace

void KnownNames::learn(const std::string &name) {
    if (name.empty() || !learned_.insert(name).second) {
        return;
    }
    order_.push_back(name);
    if (order_.size() > room_) {
        learned_.erase(order_.front());
        order_.pop_front();
    }
}

bool KnownNames::knows(const std::string &name) const {
    return name.empty() || configured_ == nullptr || learned_.contains(name) || configured_(name);
}

std::string_view KnownNames::shown(const std::string &name) const {
    return knows(name) ? std::string_view(name) : kUnknown;
}

std::string KnownNames::shown_text(std::string_view text, const std::string &user) const {
    return NameMask(user, [this](const std::string &name) { return knows(name); }).shown(text, kUnknown);
}

}  // namespace service
