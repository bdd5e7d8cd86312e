// SPDX-License-Identifier: Apache-2.0

#include "groups/server_client.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/log.hpp"
#include "net/device.hpp"

namespace service {

namespace {

std::string host_name() {
    char name[256] = "";
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::optional<net::Address> local_address(const Server &server) {
    if (!server.source.empty()) {
        return net::Address::parse(server.source, 0);
    }
    const auto address = net::Address::parse(server.host, server.port);
    return server.source_interface.empty() || !address
               ? std::nullopt
               : net::address_of_interface(server.source_interface, address->family());
}

// Why the place that requests are to be sent from cannot be used; empty when it can.
std::string place_fault(const Server &server) {
    if (local_address(server)) {
        return "";
    }
    return !server.source.empty()
               ? "the setting \"source\" is \"" + server.source + "\", which is not an address"
           : !server.source_interface.empty() ? "the interface " + server.source_interface +
                                                    " of the setting \"source-interface\" has no address of "
                                                    "the server's family; \"ip address\" "
                                                    "lists them; give it one, and reload"
                                              : "";
}

net::TlsSettings tls_settings(const Server &server) {
    return {.ca_file = server.ca_file,
            .certificate_file = server.certificate_file,
            .key_file = server.key_file,
            .crl_file = server.crl_file};
}

// The name in the certificate; without a setting it has to be the address.
std::string tls_name(const Server &server) {
    return server.server_name.empty() ? server.host : server.server_name;
}

}  // namespace

ServerClient::ServerClient(net::Loop &loop, Server server, std::uint64_t number)
    : server_(std::move(server)), name_(server_.name()) {
    const std::string unique = name_ + "#" + std::to_string(number);
    const bool has_two_ports = server_.protocol == Protocol::kRadius && server_.transport != "tls";
    health_[static_cast<std::size_t>(Use::kRights)] = unique;
    health_[static_cast<std::size_t>(Use::kAccounting)] = has_two_ports ? unique + " accounting" : unique;
    radius::Digest digest;
    if (fault_ = place_fault(server_); !fault_.empty()) {
        // said below
    } else if (server_.transport != "tls" && !radius::md5({""}, digest)) {
        fault_ = "the system's cryptography refuses MD5, so only servers with the transport tls can be asked";
    } else if (server_.protocol == Protocol::kRadius) {
        make_radius(loop);
    } else if (server_.protocol == Protocol::kTacacs) {
        make_tacacs(loop);
    } else {
        fault_ = "its protocol is not supported";
    }
}

void ServerClient::make_radius(net::Loop &loop) {
    radius::ServerSettings settings;
    settings.address = net::Address::parse(server_.host, server_.port).value_or(net::Address());
    settings.secret = radius::Secret(server_.key.text());
    settings.local = local_address(server_);
    settings.device = server_.vrf;
    settings.nas_identifier = server_.nas_identifier.empty() ? host_name() : server_.nas_identifier;
    settings.legacy = server_.legacy;
    settings.timeout = settings.longest_timeout = server_.timeout_ms * net::kMillisecond;
    settings.tries = static_cast<int>(server_.tries);
    const bool is_tls = server_.transport == "tls";
    if (is_tls) {
        settings.tls = {net::TlsContext::make(tls_settings(server_), fault_), tls_name(server_)};
        if (settings.tls.context == nullptr) {
            return;
        }
    }
    if (!server_.vendor_map.empty()) {
        auto map = radius::VendorMap::load(server_.vendor_map, fault_);
        if (!map) {
            return;  // without it a privilege level of the server would be overlooked
        }
        vendor_map_ = *std::move(map);
    }
    radius_ = radius::Client::make(loop, settings, fault_);
    if (radius_ != nullptr && !is_tls) {
        settings.address =
            net::Address::parse(server_.host, server_.accounting_port).value_or(net::Address());
        accounting_ = radius::Client::make(loop, std::move(settings), fault_);
    }
}

void ServerClient::make_tacacs(net::Loop &loop) {
    tacacs::ServerSettings settings;
    settings.address = net::Address::parse(server_.host, server_.port).value_or(net::Address());
    settings.local = local_address(server_);
    settings.device = server_.vrf;
    settings.single_connection = server_.single_connect;
    settings.timeout = server_.timeout_ms * net::kMillisecond;
    if (server_.transport == "tls") {
        settings.tls = tacacs::TlsServer{tls_settings(server_), tls_name(server_)};
    } else {
        settings.secret = tacacs::SecretBytes(server_.key.text());
    }
    tacacs_ = tacacs::Client::make(loop, settings, fault_);
}

net::Time ServerClient::longest_wait() const {
    const net::Time one = server_.timeout_ms * net::kMillisecond;
    return server_.protocol == Protocol::kRadius ? one * server_.tries : one;
}

ServerClient::Load ServerClient::load(Use use) const {
    if (tacacs_ != nullptr) {
        const tacacs::Counters counters = tacacs_->counters();
        return {counters.in_flight, counters.waiting};
    }
    const auto &client = use == Use::kAccounting && accounting_ != nullptr ? accounting_ : radius_;
    return {client != nullptr ? client->under_way() : 0, 0};
}

ServerClientPtr ServerClients::make(const Server &server) {
    auto made = std::make_shared<ServerClient>(loop_, server, ++last_number_);
    if (!made->fault().empty()) {
        log(Level::kError, "SERVER", "the server %s cannot be asked: %s", made->name().c_str(),
            made->fault().c_str());
    } else if (server.protocol == Protocol::kRadius && server.legacy && server.transport != "tls") {
        log(Level::kWarning, "LEGACY",
            "answers of %s are believed without Message-Authenticator: whoever can change packets on the way "
            "can forge them; have the server send it, and remove the setting \"legacy\"",
            made->name().c_str());
    }
    return made;
}

void ServerClients::use(const Snapshot &snapshot) {
    std::vector<ServerClientPtr> before = std::exchange(all_, {});
    auto stamps_before = std::exchange(stamps_, {});
    for (const auto &group : snapshot.groups) {
        for (const Server &server : group->servers) {
            const auto is_it = [&](const ServerClientPtr &client) { return client->server() == server; };
            if (std::any_of(all_.begin(), all_.end(), is_it)) {
                continue;
            }
            const std::string stamp = stamp_of(server);
            const auto found = std::find_if(before.begin(), before.end(), is_it);
            const bool is_same = found != before.end() && stamps_before[found->get()] == stamp;
            all_.push_back(is_same ? *found : make(server));
            stamps_[all_.back().get()] = stamp;
        }
    }
    for (const ServerClientPtr &client : before) {
        earlier_.push_back(client);  // requests under way may use it
    }
    before.clear();
    std::erase_if(earlier_, [](const auto &client) { return client.expired(); });
}

const ServerClient *ServerClients::present(const Server &server) const {
    const auto found = std::find_if(
        all_.begin(), all_.end(), [&](const ServerClientPtr &client) { return client->server() == server; });
    return found != all_.end() ? found->get() : nullptr;
}

ServerClientPtr ServerClients::find(const Server &server) {
    for (const ServerClientPtr &client : all_) {
        if (client->server() == server) {
            return client;
        }
    }
    for (const auto &entry : earlier_) {
        if (const ServerClientPtr client = entry.lock(); client != nullptr && client->server() == server) {
            return client;
        }
    }
    auto client = make(server);
    earlier_.push_back(client);
    return client;
}

std::vector<ServerClientPtr> ServerClients::find(const Group &group) {
    std::vector<ServerClientPtr> clients;
    clients.reserve(group.servers.size());
    for (const Server &server : group.servers) {
        clients.push_back(find(server));
    }
    return clients;
}

bool ServerClients::has_health(const std::string &name) const {
    return std::any_of(all_.begin(), all_.end(), [&](const ServerClientPtr &client) {
        return client->health(Use::kRights) == name || client->health(Use::kAccounting) == name;
    });
}

std::string ServerClients::stamp_of(const Server &server) {
    const auto local = local_address(server);  // an interface may have another one now
    std::string stamp = (local ? local->text() : "") + ";";
    for (const std::string *path : {&server.ca_file, &server.certificate_file, &server.key_file,
                                    &server.crl_file, &server.vendor_map}) {
        struct stat status {};
        if (!path->empty() && stat(path->c_str(), &status) == 0) {
            stamp += std::to_string(status.st_ino) + "/" + std::to_string(status.st_size) + "/" +
                     std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
        }
        stamp += ";";
    }
    return stamp;
}

}  // namespace service
