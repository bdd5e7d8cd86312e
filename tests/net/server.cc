// SPDX-License-Identifier: Apache-2.0
//
// A server on loopback for tests of connections.
#include "net/server.hpp"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>

namespace net_test {

std::string ServerSide::read() {
    std::array<char, 16384> buffer;
    if (ssl_ != nullptr) {
        std::size_t taken = 0;
        return SSL_read_ex(ssl_.get(), buffer.data(), buffer.size(), &taken) == 1
                   ? std::string(buffer.data(), taken)
                   : std::string();
    }
    const ssize_t taken = recv(socket_.get(), buffer.data(), buffer.size(), 0);
    return taken > 0 ? std::string(buffer.data(), static_cast<std::size_t>(taken)) : std::string();
}

std::string ServerSide::read(std::size_t size) {
    std::string all;
    while (all.size() < size) {
        const std::string part = read();
        if (part.empty()) {
            break;
        }
        all += part;
    }
    return all;
}

void ServerSide::write(std::string_view bytes) {
    if (ssl_ != nullptr) {
        std::size_t written;
        EXPECT_EQ(SSL_write_ex(ssl_.get(), bytes.data(), bytes.size(), &written), 1);
        return;
    }
    while (!bytes.empty()) {
        const ssize_t sent = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

void ServerSide::end_tls() {
    SSL_shutdown(ssl_.get());
}

Server::Server() : address_(*net::Address::parse("127.0.0.1", 0)) {
    listener_ = net::Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(listener_.get(), address_.get(), address_.size()), 0);
    EXPECT_EQ(listen(listener_.get(), 8), 0);
    sockaddr_in bound;
    socklen_t size = sizeof bound;
    EXPECT_EQ(getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&bound), &size), 0);
    address_ = *net::Address::parse("127.0.0.1", ntohs(bound.sin_port));
}

Server::Server(const Identity &identity, const Identity *client_authority) : Server() {
    context_.reset(SSL_CTX_new(TLS_server_method()));
    EXPECT_EQ(SSL_CTX_use_certificate(context_.get(), identity.certificate.get()), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey(context_.get(), identity.key.get()), 1);
    if (client_authority != nullptr) {
        X509_STORE_add_cert(SSL_CTX_get_cert_store(context_.get()), client_authority->certificate.get());
        SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
}

void Server::offer_only(int version) {
    SSL_CTX_set_min_proto_version(context_.get(), version);
    SSL_CTX_set_max_proto_version(context_.get(), version);
    SSL_CTX_set_security_level(context_.get(), 0);  // otherwise OpenSSL does not offer the oldest
}

ServerSide Server::accept() {
    net::Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_TRUE(socket);
    SSL *ssl = nullptr;
    bool usable = true;
    if (context_ != nullptr) {
        ssl = SSL_new(context_.get());
        SSL_set_fd(ssl, socket.get());
        usable = SSL_accept(ssl) == 1;
    }
    ServerSide made(std::move(socket), ssl);
    made.usable_ = usable;
    return made;
}

std::string version_offered_at(const net::Address &server) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()),
                                                                    SSL_CTX_free);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_security_level(context.get(), 0);
    const net::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(socket.get(), server.get(), server.size()), 0);
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context.get()), SSL_free);
    SSL_set_fd(ssl.get(), socket.get());
    const std::string version = SSL_connect(ssl.get()) == 1 ? SSL_get_version(ssl.get()) : "";
    char byte;
    while (SSL_read(ssl.get(), &byte, 1) > 0) {  // a server that still writes would get SIGPIPE
    }
    return version;
}

}  // namespace net_test
