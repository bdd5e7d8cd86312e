// SPDX-License-Identifier: Apache-2.0

#include "groups/probes.hpp"

#include <utility>

#include "base/log.hpp"

namespace service {

namespace {

net::Time dead_time(const ServerClient &server) {
    return server.server().dead_time_s * net::kSecond;
}

}  // namespace

Probes::~Probes() {
    for (auto &[health, probe] : probes_) {
        give_up(probe);
    }
}

void Probes::give_up(Probe &probe) {
    const ServerClientPtr server = probe.server.lock();
    if (server != nullptr && probe.ticket != 0) {
        server->radius(probe.use).cancel(probe.ticket);
    }
}

void Probes::silent(const ServerClientPtr &server, Use use, const std::string &why) {
    if (health_.silent(server->health(use), loop_.now(), dead_time(*server))) {
        server->figures(use).became_dead(why);
        log(Level::kWarning, "SERVER_SILENT",
            "the server %s does not answer%s; it is asked again in %u s, and before that only when no other "
            "method is left (%s)",
            server->name().c_str(), use == Use::kAccounting ? " to accounting records" : "",
            server->server().dead_time_s, why.c_str());
    }
    if (server->server().status_server && server->server().protocol == Protocol::kRadius &&
        dead_time(*server) > 0) {
        plan(server, use);
    }
}

// The probe is sent when the mark ends: the mark is then the probe's, and requests go on
// passing the server over.
void Probes::plan(const ServerClientPtr &server, Use use) {
    const std::string &health = server->health(use);
    auto [found, is_new] = probes_.try_emplace(health);
    if (is_new) {
        found->second.server = server;
        found->second.use = use;
        found->second.timer = std::make_unique<net::Timer>(loop_, [this, health] { probe(health); });
        // At once: servers drop some requests, such as those for a realm whose own server is down, and a
        // user of such a name must not have the server passed over for all others.
        found->second.timer->set(loop_.now());
    }
}

void Probes::probe(const std::string &health) {
    const auto found = probes_.find(health);
    const ServerClientPtr server = found->second.server.lock();
    if (server == nullptr || health_.state(health, loop_.now()) == ServerHealth::State::kAlive) {
        probes_.erase(found);
        return;
    }
    health_.asking(health, loop_.now(), server->longest_wait() + net::kSecond);
    ++server->figures(found->second.use).probes;
    found->second.ticket =
        server->radius(found->second.use).ask_status([this, health](const radius::Outcome &outcome) {
            take(health, outcome);
        });
}

void Probes::take(const std::string &health, const radius::Outcome &outcome) {
    const auto found = probes_.find(health);
    const ServerClientPtr server = found->second.server.lock();
    found->second.ticket = 0;
    if (server == nullptr) {
        return;
    }
    if (outcome.kind == radius::Outcome::Kind::kAnswer) {
        const Use use = found->second.use;
        ++server->figures(use).probe_answers;
        probes_.erase(found);
        if (health_.answered(health)) {
            server->figures(use).became_alive();
            log(Level::kNotice, "SERVER_ANSWERS", "the server %s answers again", server->name().c_str());
        }
        return;
    }
    health_.silent(health, loop_.now(), dead_time(*server));
    found->second.timer->set(loop_.now() + dead_time(*server));
}

void Probes::keep_only(const ServerClients &clients) {
    for (auto entry = probes_.begin(); entry != probes_.end();) {
        if (clients.has_health(entry->first)) {
            ++entry;
        } else {
            give_up(entry->second);
            entry = probes_.erase(entry);
        }
    }
}

}  // namespace service
