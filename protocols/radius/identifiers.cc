// SPDX-License-Identifier: Apache-2.0
//
// Taking and giving back identifiers.

#include "radius/identifiers.hpp"

namespace radius {

Identifiers::Identifiers() {
    for (unsigned id = 0; id <= UINT8_MAX; ++id) {
        free_.push_back(static_cast<std::uint8_t>(id));
    }
}

std::optional<std::uint8_t> Identifiers::take(net::Time now) {
    while (!resting_.empty() && resting_.front().until <= now) {
        free_.push_back(resting_.front().id);
        resting_.pop_front();
    }
    if (free_.empty()) {
        return std::nullopt;
    }
    const std::uint8_t id = free_.front();
    free_.pop_front();
    ++taken_;
    return id;
}

void Identifiers::release(std::uint8_t id) {
    --taken_;
    free_.push_back(id);
}

void Identifiers::release_at(std::uint8_t id, net::Time at) {
    --taken_;
    resting_.push_back({at, id});
}

}  // namespace radius
