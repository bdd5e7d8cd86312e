// SPDX-License-Identifier: Apache-2.0

#include "groups/probes.hpp"

#include <sys/random.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <utility>

#include "base/log.hpp"
#include "tacacs/authentication.hpp"

namespace service {

namespace {

net::Time dead_time(const ServerClient &server) {
    return server.server().dead_time_s * net::kSecond;
}

// ---- the questions

constexpr std::uint32_t kLogin = 1;  // Service-Type (RFC 2865, 5.6)

bool knows_status_server(const Server &server) {
    return server.protocol == Protocol::kRadius && server.status_server;
}

// Each time another one, so that no one can let the user in by giving him this password.
std::string password() {
    unsigned char bytes[12] = {};
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        std::random_device device;
        std::generate(std::begin(bytes), std::end(bytes),
                      [&] { return static_cast<unsigned char>(device()); });
    }
    std::string text;
    for (const unsigned char byte : bytes) {
        text += static_cast<char>('a' + byte % 26);
    }
    return text;
}

class RadiusProbe : public Attempt {
  public:
    RadiusProbe(ServerClientPtr server, Use use, net::Time until, std::function<void(bool)> done)
        : server_(std::move(server)), use_(use), done_(std::move(done)) {
        const auto take = [this](const radius::Outcome &outcome) {
            const auto told = std::move(done_);
            told(outcome.kind == radius::Outcome::Kind::kAnswer);  // may destroy this
        };
        ticket_ = knows_status_server(server_->server()) ? server_->radius(use_).ask_status(take, until)
                                                         : server_->radius(use_).ask(login(), take, until);
    }
    ~RadiusProbe() override { server_->radius(use_).cancel(ticket_); }
    RadiusProbe(const RadiusProbe &) = delete;
    RadiusProbe &operator=(const RadiusProbe &) = delete;

  private:
    radius::Question login() const {
        radius::Question question = radius::Question::access();
        static_cast<void>(question.add(radius::Type::kUserName, server_->server().probe_user));
        static_cast<void>(question.add_number(radius::Type::kServiceType, kLogin));
        question.set_password(password());
        return question;
    }

    ServerClientPtr server_;
    Use use_;
    std::function<void(bool)> done_;
    radius::Client::Ticket ticket_ = 0;
};

class TacacsProbe : public Attempt {
  public:
    TacacsProbe(ServerClientPtr server, net::Time until, std::function<void(bool)> done)
        : server_(std::move(server)), done_(std::move(done)) {
        const std::string secret = password();
        tacacs::Start start;
        start.subject.user = server_->server().probe_user;
        start.subject.type = tacacs::AuthenticationType::kPap;
        start.subject.service = tacacs::Service::kLogin;
        start.data = secret;
        id_ = server_->tacacs().authenticate(
            start, until, [this](const tacacs::AuthenticationOutcome &outcome) {
                const auto told = std::move(done_);
                told(outcome.result == tacacs::Result::kAnswer);  // may destroy this
            });
    }
    ~TacacsProbe() override { server_->tacacs().cancel(id_); }
    TacacsProbe(const TacacsProbe &) = delete;
    TacacsProbe &operator=(const TacacsProbe &) = delete;

  private:
    ServerClientPtr server_;
    std::function<void(bool)> done_;
    tacacs::Client::Id id_ = 0;
};

// Whether a server can be asked only to learn whether it answers: by Status-Server where it is said to
// know it (RFC 5997), else by the login of a user who need not exist.
bool can_probe(const ServerClient &server, Use use) {
    const bool is_for_logins = use == Use::kRights || !server.has_two_ports();
    return server.fault().empty() &&
           (knows_status_server(server.server()) || (is_for_logins && !server.server().probe_user.empty()));
}

// Asks it, for as long as a login would be. `done` is called later: whether anything was answered.
std::unique_ptr<Attempt> probe_server(net::Loop &loop, const ServerClientPtr &server, Use use,
                                      std::function<void(bool)> done) {
    const net::Time until = loop.now() + server->longest_wait();
    if (server->server().protocol == Protocol::kRadius) {
        return std::make_unique<RadiusProbe>(server, use, until, std::move(done));
    }
    return std::make_unique<TacacsProbe>(server, until, std::move(done));
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
    ++server->figures(found->second.use).probes;
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
        ++server->figures(use).probe_answers;
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
