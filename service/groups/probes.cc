// SPDX-License-Identifier: Apache-2.0

#include "groups/probes.hpp"

#include <utility>

#include "base/log.hpp"
#include "groups/probe_request.hpp"

namespace service {

namespace {

net::Time dead_time(const ServerClient &server) {
    return server.server().dead_time_s * net::kSecond;
}

}  // namespace

void Probes::silent(const ServerClientPtr &server, Use use, net::Time asked_at, const std::string &why) {
    const std::string &health = server->health(use);
    if (!health_.has_answered_since(health, asked_at)) {
        marked(server, use, health_.silent(health, loop_.now(), dead_time(*server)), why);
    }
}

void Probes::unreachable(const ServerClientPtr &server, Use use, const std::string &why) {
    marked(server, use, health_.silent(server->health(use), loop_.now(), dead_time(*server)), why);
}

void Probes::marked(const ServerClientPtr &server, Use use, bool is_new, const std::string &why) {
    if (is_new) {
        server->figures(use).became_dead(why);
        log(Level::kWarning, "SERVER_SILENT",
            "the server %s does not answer%s; it is asked again in %u s, and before that only when no other "
            "method is left (%s)",
            server->name().c_str(), use == Use::kAccounting ? " to accounting records" : "",
            server->server().dead_time_s, why.c_str());
    }
    suspect(server, use);
}

void Probes::suspect(const ServerClientPtr &server, Use use) {
    if (dead_time(*server) <= 0 || !can_probe(*server, use)) {
        return;
    }
    const std::string &health = server->health(use);
    auto [found, is_new] = probes_.try_emplace(health);
    if (is_new) {
        found->second.server = server;
        found->second.use = use;
        found->second.timer = std::make_unique<net::Timer>(loop_, [this, health] { probe(health); });
        found->second.timer->set(loop_.now());
    }
}

// While a server is marked, the mark is the probe's, and requests go on passing it over.
void Probes::probe(const std::string &health) {
    const auto found = probes_.find(health);
    const ServerClientPtr server = found->second.server.lock();
    if (server == nullptr) {
        probes_.erase(found);
        return;
    }
    health_.asking(health, loop_.now(), server->longest_wait() + net::kSecond);
    found->second.attempt = probe_server(loop_, server, found->second.use,
                                         [this, health](bool is_answered) { take(health, is_answered); });
}

void Probes::take(const std::string &health, bool is_answered) {
    const auto found = probes_.find(health);
    const auto attempt = std::move(found->second.attempt);  // until here: it is the caller
    const ServerClientPtr server = found->second.server.lock();
    if (server == nullptr) {
        return;
    }
    if (is_answered) {
        const Use use = found->second.use;
        probes_.erase(found);
        if (health_.answered(health, loop_.now())) {
            server->figures(use).became_alive();
            log(Level::kNotice, "SERVER_ANSWERS", "the server %s answers again", server->name().c_str());
        }
    } else if (health_.state(health, loop_.now()) == ServerHealth::State::kAlive) {
        probes_.erase(found);  // a request has found out
    } else {
        health_.silent(health, loop_.now(), dead_time(*server));
        found->second.timer->set(loop_.now() + dead_time(*server));
    }
}

void Probes::keep_only(const ServerClients &clients) {
    std::erase_if(probes_, [&](const auto &entry) { return !clients.has_health(entry.first); });
}

}  // namespace service
