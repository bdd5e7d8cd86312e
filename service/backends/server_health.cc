// SPDX-License-Identifier: Apache-2.0

#include "backends/server_health.hpp"

#include <algorithm>

namespace service {

ServerHealth::State ServerHealth::state(std::string_view server, Time now) const {
    const auto found = dead_.find(server);
    if (found == dead_.end()) {
        return State::kAlive;
    }
    return found->second.until <= now ? State::kProbe : State::kDead;
}

const ServerHealth::Mark *ServerHealth::mark(std::string_view server) const {
    const auto found = dead_.find(server);
    return found != dead_.end() ? &found->second : nullptr;
}

std::vector<std::size_t> ServerHealth::order(const std::vector<std::string> &servers, Time now) const {
    std::vector<std::size_t> first, last;
    for (std::size_t i = 0; i < servers.size(); ++i) {
        (state(servers[i], now) == State::kDead ? last : first).push_back(i);
    }
    first.insert(first.end(), last.begin(), last.end());
    return first;
}

void ServerHealth::asking(std::string_view server, Time now, Time probe_time) {
    const auto found = dead_.find(server);
    if (found != dead_.end() && found->second.until <= now) {
        found->second.until = now + probe_time;
        found->second.is_probed = true;
    }
}

bool ServerHealth::has_answered_since(std::string_view server, Time time) const {
    const auto found = answered_.find(server);
    return found != answered_.end() && found->second > time;
}

bool ServerHealth::answered(std::string_view server, Time now) {
    const auto known = answered_.find(server);
    if (known != answered_.end()) {
        known->second = now;
    } else {
        answered_.emplace(server, now);
    }
    const auto found = dead_.find(server);
    if (found == dead_.end()) {
        return false;
    }
    dead_.erase(found);
    return true;
}

bool ServerHealth::silent(std::string_view server, Time now, Time dead_time) {
    if (dead_time <= 0) {
        return false;
    }
    const auto [mark, is_new] = dead_.try_emplace(std::string(server));
    // Requests that were under way when the server died tell it one after the other: only a
    // probe, or the end of the time, begins the time again.
    if (is_new || mark->second.is_probed || mark->second.until <= now) {
        mark->second = Mark{now + dead_time, false};
    }
    return is_new;
}

void ServerHealth::keep_only(const std::function<bool(const std::string &)> &is_configured) {
    std::erase_if(dead_, [&](const auto &entry) { return !is_configured(entry.first); });
    std::erase_if(answered_, [&](const auto &entry) { return !is_configured(entry.first); });
}

}  // namespace service
