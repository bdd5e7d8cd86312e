// SPDX-License-Identifier: Apache-2.0
//
// A server on loopback for tests of connections: one client at a time, blocking, so a test
// runs it in a thread of its own.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/address.hpp"
#include "net/certificates.hpp"
#include "net/descriptor.hpp"

namespace net_test {

// A connection as the server sees it. Plain without TLS.
class ServerSide {
  public:
    ServerSide(net::Descriptor socket, SSL *ssl) : socket_(std::move(socket)), ssl_(ssl, SSL_free) {}

    // Bytes of one read; with TLS those of one record. Empty at the end or after an error.
    std::string read();
    // Reads until there are as many bytes; fewer when the client has ended.
    std::string read(std::size_t size);
    void write(std::string_view bytes);
    // Ends TLS properly before the connection.
    void end_tls();
    SSL *ssl() const { return ssl_.get(); }
    int socket() const { return socket_.get(); }
    // Whether there is a connection, and TLS was agreed on where it was wanted.
    bool usable() const { return usable_; }

  private:
    friend class Server;
    net::Descriptor socket_;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
    bool usable_ = true;
};

class Server {
  public:
    Server();
    // With TLS: shows `identity`, and asks for a certificate of `client_authority` if that is given.
    Server(const Identity &identity, const Identity *client_authority = nullptr);

    const net::Address &address() const { return address_; }
    // Offers one version of TLS, as SSL_CTX_set_max_proto_version() takes it, an old one too.
    void offer_only(int version);
    ServerSide accept();

  private:
    net::Descriptor listener_;
    net::Address address_;
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_{nullptr, SSL_CTX_free};
};

// The version of TLS that a server agrees on with a client that takes any; "" without an agreement.
std::string version_offered_at(const net::Address &server);

}  // namespace net_test
