// SPDX-License-Identifier: Apache-2.0

#include "groups/probe_request.hpp"

#include <sys/random.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "tacacs/authentication.hpp"

namespace service {

namespace {

constexpr std::uint32_t kLogin = 1;  // Service-Type (RFC 2865, 5.6)

bool knows_status_server(const Server &server) {
    return server.protocol == Protocol::kRadius && server.status_server;
}

// Each time another one, so that no one can let the user in by giving him this password.
std::string password() {
    unsigned char bytes[12] = {};
    static_cast<void>(getrandom(bytes, sizeof bytes, 0));
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

}  // namespace

bool can_probe(const ServerClient &server, Use use) {
    const bool is_for_logins = use == Use::kRights || !server.has_two_ports();
    return server.fault().empty() &&
           (knows_status_server(server.server()) || (is_for_logins && !server.server().probe_user.empty()));
}

std::unique_ptr<Attempt> probe_server(net::Loop &loop, const ServerClientPtr &server, Use use,
                                      std::function<void(bool)> done) {
    const net::Time until = loop.now() + server->longest_wait();
    if (server->server().protocol == Protocol::kRadius) {
        return std::make_unique<RadiusProbe>(server, use, until, std::move(done));
    }
    return std::make_unique<TacacsProbe>(server, until, std::move(done));
}

}  // namespace service
