// SPDX-License-Identifier: Apache-2.0
//
// The client: its questions, and the transport that sends them.

#include "radius/client.hpp"

#include <utility>

#include "radius/exchange.hpp"
#include "radius/radsec.hpp"
#include "radius/udp.hpp"

namespace radius {

class Client::Impl {
  public:
    Impl(net::Loop &loop, ServerSettings settings) : exchanges(loop, std::move(settings)) {
        if (exchanges.settings.tls.context != nullptr) {
            transport = std::make_unique<RadsecTransport>(exchanges);
        } else {
            transport = std::make_unique<UdpTransport>(exchanges);
        }
        exchanges.use(*transport);
    }

    Exchanges exchanges;
    std::unique_ptr<Transport> transport;
};

Client::Client(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Client::~Client() = default;

std::unique_ptr<Client> Client::make(net::Loop &loop, ServerSettings settings, std::string &error) {
    error = fault_of(settings);
    if (!error.empty()) {
        return nullptr;
    }
    if (settings.tls.context != nullptr) {
        settings.secret = Secret("radsec");
    }
    return std::unique_ptr<Client>(new Client(std::make_unique<Impl>(loop, std::move(settings))));
}

Client::Ticket Client::ask(Question question, Done done, net::Time deadline) {
    return impl_->exchanges.add(std::move(question), std::move(done), deadline);
}

Client::Ticket Client::ask_status(Done done, net::Time deadline) {
    return ask(Question::status(), std::move(done), deadline);
}

void Client::cancel(Ticket ticket) {
    impl_->exchanges.cancel(ticket);
}

const Counters &Client::counters() const {
    return impl_->exchanges.counters;
}

std::size_t Client::under_way() const {
    return impl_->exchanges.size();
}

}  // namespace radius
