// SPDX-License-Identifier: Apache-2.0
//
// A RADIUS server over TLS on loopback that does what a test says, in a thread of its own.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "net/certificates.hpp"
#include "net/server.hpp"
#include "net/stream.hpp"
#include "radius/bytes.hpp"
#include "radius/client.hpp"
#include "radius/udp_server.hpp"
#include "support/temp_dir.hpp"

namespace radius_test {

// An authority and a server's certificate of it for aaa.test.
class TestTls {
  public:
    explicit TestTls(const net_test::Wanted &wanted = {.common_name = "server",
                                                       .alternative_names = "DNS:aaa.test"})
        : authority_(net_test::make_identity(
              {.common_name = "authority", .alternative_names = "", .is_authority = true})) {
        net_test::Wanted signed_one = wanted;
        signed_one.issuer = &authority_;
        identity = net_test::make_identity(signed_one);
        directory_.write("ca.pem", authority_.certificate_pem());
    }
    net::TlsPeer peer(const std::string &name = "aaa.test") const {
        std::string error;
        net::TlsSettings settings;
        settings.ca_file = directory_.path("ca.pem");
        auto context = net::TlsContext::make(settings, error);
        EXPECT_NE(context, nullptr) << error;
        return {std::move(context), name};
    }

    net_test::Identity identity;

  private:
    TempDir directory_;
    net_test::Identity authority_;
};

// One TLS record is one packet; empty at the end.
inline Packet next_packet(net_test::ServerSide &side) {
    Packet packet = {.bytes = side.read(), .from = {}, .from_size = 0};
    if (!packet.bytes.empty()) {
        EXPECT_EQ(packet.bytes.size(), static_cast<unsigned char>(packet.bytes.at(2)) * 256U +
                                           static_cast<unsigned char>(packet.bytes.at(3)));
    }
    return packet;
}

// As most servers answer over TLS: without Message-Authenticator.
inline std::string answer_to(const Packet &request, radius::Code code = radius::Code::kAccessAccept,
                             std::string_view attributes = {}) {
    return answer(static_cast<int>(code), request.bytes, attributes, "radsec");
}

class TlsServer {
  public:
    using Script = std::function<void(net_test::Server &)>;

    explicit TlsServer(Script script, const TestTls &tls)
        : server_(tls.identity), thread_([this, script = std::move(script)] {
              // The client may close while the server writes. Only this thread ignores that: the
              // client has to take care of itself.
              sigset_t broken_pipe;
              sigemptyset(&broken_pipe);
              sigaddset(&broken_pipe, SIGPIPE);
              pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
              script(server_);
          }) {}
    ~TlsServer() { thread_.join(); }
    TlsServer(const TlsServer &) = delete;
    TlsServer &operator=(const TlsServer &) = delete;

    radius::ServerSettings settings(const TestTls &tls) const {
        radius::ServerSettings settings;
        settings.address = server_.address();
        settings.tls = tls.peer();
        settings.reconnect = settings.longest_reconnect = net::kMillisecond;
        settings.connect_timeout = settings.timeout = settings.longest_timeout = settings.watchdog =
            600 * net::kSecond;
        return settings;
    }

  private:
    net_test::Server server_;
    std::thread thread_;
};

// Of a server whose port is closed.
inline radius::ServerSettings settings_of_nothing(const TestTls &tls) {
    return TlsServer([](net_test::Server &) {}, tls).settings(tls);
}

}  // namespace radius_test
