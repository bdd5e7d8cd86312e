// SPDX-License-Identifier: Apache-2.0

#include "net/tls.hpp"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "net/tls_fixture.hpp"

namespace net {
namespace {

using net_test::Client;
using net_test::Identity;
using net_test::make_identity;
using net_test::Server;
using net_test::ServerSide;

class Tls : public net_test::Tls {};

TEST_F(Tls, SendsEachPieceAsARecord) {
    Server server(server_identity("DNS:aaa.test"));
    std::thread other([&] {
        ServerSide side = server.accept();
        ASSERT_TRUE(side.usable());
        EXPECT_STREQ(SSL_get_servername(side.ssl(), TLSEXT_NAMETYPE_host_name), "aaa.test");
        EXPECT_STREQ(SSL_get_version(side.ssl()), "TLSv1.3");
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(side.read(), "packet " + std::to_string(i));  // a read gives one record
        }
        side.write("answer");
        EXPECT_EQ(side.read(), "");
        EXPECT_EQ(SSL_get_shutdown(side.ssl()), SSL_RECEIVED_SHUTDOWN);  // TLS was ended properly
    });
    Client client(loop_, server.address(), {trusting(), "aaa.test"});
    for (int i = 0; i < 40; ++i) {
        if (i == 20) {
            client.run_until([&] { return client.connected; });
        }
        ASSERT_TRUE(client.stream->send("packet " + std::to_string(i)));
    }
    client.run_until_received(6);
    EXPECT_EQ(client.received, "answer");
    client.stream.reset();
    other.join();
}

TEST_F(Tls, ChecksTheNameOfTheServer) {
    const Identity both = server_identity("DNS:aaa.test, DNS:*.wild.test, IP:127.0.0.1");
    const auto context = trusting();
    EXPECT_EQ(refusal(both, "aaa.test", context), "");
    EXPECT_EQ(refusal(both, "127.0.0.1", context), "");
    EXPECT_EQ(refusal(both, "one.wild.test", context), "");
    const std::string refused = "the server's certificate is refused: ";
    const std::string names =
        " is expected, and the certificate is for \"aaa.test\", \"*.wild.test\", \"127.0.0.1\"; ";
    const std::string advice = "correct the server's name in its settings, or its certificate";
    EXPECT_EQ(refusal(both, "bbb.test", context),
              refused + "hostname mismatch: \"bbb.test\"" + names + advice);
    EXPECT_EQ(refusal(both, "127.0.0.2", context),
              refused + "IP address mismatch: \"127.0.0.2\"" + names + advice);
    EXPECT_EQ(refusal(both, "one.two.wild.test", context),
              refused + "hostname mismatch: \"one.two.wild.test\"" + names + advice);
    // The common name alone does not count.
    EXPECT_EQ(refusal(server_identity(""), "aaa.test", context),
              refused +
                  "hostname mismatch: \"aaa.test\" is expected, and the certificate has no alternative name "
                  "of a host or an address; its common name does not count; " +
                  advice);
}

TEST_F(Tls, RefusesCertificatesThatProveNothing) {
    const auto context = trusting();
    EXPECT_EQ(refusal(server_identity("DNS:aaa.test", -3600), "aaa.test", context),
              "the server's certificate is refused: certificate has expired");
    EXPECT_EQ(refusal(make_identity({.common_name = "aaa.test", .alternative_names = "DNS:aaa.test"}),
                      "aaa.test", context),
              "the server's certificate is refused: self-signed certificate");
    const Identity stranger =
        make_identity({.common_name = "Stranger", .alternative_names = "", .is_authority = true});
    const Identity of_stranger =
        make_identity({.common_name = "aaa.test", .alternative_names = "DNS:aaa.test", .issuer = &stranger});
    EXPECT_EQ(refusal(of_stranger, "aaa.test", context),
              "the server's certificate is refused: unable to get local issuer certificate");
    // A certificate that is no authority's cannot sign another one.
    const Identity leaf = server_identity("DNS:leaf.test");
    const Identity of_leaf =
        make_identity({.common_name = "aaa.test", .alternative_names = "DNS:aaa.test", .issuer = &leaf});
    EXPECT_NE(refusal(of_leaf, "aaa.test", context), "");
}

TEST_F(Tls, RefusesToGoWithoutANameToCheck) {
    const auto context = trusting();
    const Identity identity = server_identity("DNS:aaa.test");
    const std::string nothing = "there is no name to check the server's certificate with";
    EXPECT_EQ(refusal(identity, "", context), nothing);
    EXPECT_EQ(refusal(identity, std::string("aaa.test\0.evil", 14), context), nothing);
}

TEST_F(Tls, ShowsItsCertificate) {
    const Identity mine =
        make_identity({.common_name = "router", .alternative_names = "DNS:router", .issuer = &authority_});
    TlsSettings settings;
    settings.certificate_file = file("router.pem", mine.certificate_pem());
    settings.key_file = file("router.key", mine.key_pem());
    Server server(server_identity("DNS:aaa.test"), &authority_);
    std::thread other([&] {
        ServerSide side = server.accept();
        ASSERT_TRUE(side.usable());
        side.write("welcome");
        ServerSide without = server.accept();
        EXPECT_FALSE(without.usable());
    });
    Client client(loop_, server.address(), {trusting(settings), "aaa.test"});
    client.run_until_received(7);
    EXPECT_EQ(client.received, "welcome");
    Client stranger(loop_, server.address(), {trusting(), "aaa.test"});
    stranger.run_until_closed();
    other.join();
    EXPECT_EQ(stranger.reason, "TLS: tlsv13 alert certificate required");
}

TEST_F(Tls, RefusesOldVersions) {
    const Identity identity = server_identity("DNS:aaa.test");
    TlsSettings newest;
    newest.version_1_3_only = true;
    const auto with_1_2 = trusting();
    const auto with_1_3 = trusting(newest);
    const auto agreed = [&](int version, const char *name, const std::shared_ptr<const TlsContext> &context) {
        Server server(identity);
        server.offer_only(version);
        std::thread other([&] {
            server.accept();
            ServerSide side = server.accept();
            if (side.usable()) {
                side.write("x");
            }
        });
        EXPECT_EQ(net_test::version_offered_at(server.address()), name) << "what is refused must be offered";
        Client client(loop_, server.address(), {context, "aaa.test"});
        client.run_until([&] { return client.closed || !client.received.empty(); });
        client.stream.reset();
        other.join();
        return client.connected ? std::string("agreed") : client.reason;
    };
    const std::string older = "the server offers only older versions of TLS than ";
    EXPECT_EQ(agreed(TLS1_2_VERSION, "TLSv1.2", with_1_2), "agreed");
    EXPECT_NE(agreed(TLS1_1_VERSION, "TLSv1.1", with_1_2).find(older + "1.2"), std::string::npos);
    EXPECT_NE(agreed(TLS1_VERSION, "TLSv1", with_1_2).find(older + "1.2"), std::string::npos);
    EXPECT_EQ(agreed(TLS1_3_VERSION, "TLSv1.3", with_1_3), "agreed");
    EXPECT_NE(agreed(TLS1_2_VERSION, "TLSv1.2", with_1_3).find(older + "1.3"), std::string::npos);
}

TEST_F(Tls, TellsAProperEndFromACut) {
    const auto context = trusting();
    for (const bool proper : {true, false}) {
        Server server(server_identity("DNS:aaa.test"));
        std::thread other([&] {
            ServerSide side = server.accept();
            ASSERT_TRUE(side.usable());
            side.write("last");
            if (proper) {
                side.end_tls();
            }
        });
        Client client(loop_, server.address(), {context, "aaa.test"});
        client.run_until_closed();
        other.join();
        EXPECT_EQ(client.received, "last");
        EXPECT_EQ(client.reason, proper ? "the server has closed the connection"
                                        : "the server has closed the connection without ending TLS");
    }
}

TEST_F(Tls, ReportsAServerThatDoesNotSpeakIt) {
    const auto context = trusting();
    Server server;
    std::thread other([&] {
        ServerSide side = server.accept();
        side.read();
        side.write("HTTP/1.0 400 Bad Request\r\n\r\n");
    });
    Client client(loop_, server.address(), {context, "aaa.test"});
    client.run_until_closed();
    other.join();
    EXPECT_EQ(client.reason, "TLS: wrong version number");
    EXPECT_FALSE(client.connected);
}

TEST_F(Tls, LongAnswersArriveWhole) {
    Server server(server_identity("DNS:aaa.test"));
    constexpr std::size_t kSize = 2 << 20;
    std::thread other([&] {
        ServerSide side = server.accept();
        ASSERT_TRUE(side.usable());
        side.write(std::string(kSize, 'l'));
        side.end_tls();
    });
    Client client(loop_, server.address(), {trusting(), "aaa.test"});
    client.run_until_closed();
    other.join();
    EXPECT_EQ(client.received.size(), kSize);
}

TEST_F(Tls, KeepsWhatASlowServerDoesNotTake) {
    Server server(server_identity("DNS:aaa.test"));
    std::unique_ptr<ServerSide> side;
    std::thread accepting([&] { side = std::make_unique<ServerSide>(server.accept()); });
    Client client(loop_, server.address(), {trusting(), "aaa.test"});
    client.run_until([&] { return client.connected; });
    accepting.join();
    ASSERT_TRUE(side->usable());
    std::size_t sent = 0;
    const std::string block(4000, 'b');
    while (client.stream->send(block)) {
        sent += block.size();
    }
    std::thread other([&] {
        EXPECT_EQ(side->read(sent).size(), sent);
        side->write("all");
    });
    client.run_until_received(3);
    other.join();
    EXPECT_EQ(client.received, "all");
}

// ---- settings -----------------------------------------------------------------------------

TEST_F(Tls, SaysWhichFileOfTheSettingsIsWrong) {
    const auto error_of = [](const TlsSettings &settings) {
        std::string error;
        EXPECT_EQ(TlsContext::make(settings, error), nullptr);
        return error;
    };
    const Identity mine = server_identity("DNS:aaa.test");
    const Identity other = server_identity("DNS:bbb.test");
    const std::string ca = file("ca.pem", authority_.certificate_pem());
    const std::string certificate = file("mine.pem", mine.certificate_pem());
    const std::string key = file("mine.key", mine.key_pem());
    const std::string other_key = file("other.key", other.key_pem());
    const std::string garbage = file("garbage", "no certificate\n");
    EXPECT_EQ(error_of({.ca_file = "/nonexistent/ca.pem", .certificate_file = "", .key_file = ""}),
              "/nonexistent/ca.pem: No such file or directory");
    EXPECT_NE(error_of({.ca_file = garbage, .certificate_file = "", .key_file = ""}).find(garbage + ": "),
              std::string::npos);
    EXPECT_EQ(error_of({.ca_file = ca, .certificate_file = certificate, .key_file = ""}),
              certificate + ": a certificate needs a key file too");
    EXPECT_EQ(error_of({.ca_file = ca, .certificate_file = "", .key_file = key}),
              key + ": a key needs a certificate file too");
    EXPECT_EQ(error_of({.ca_file = ca, .certificate_file = certificate, .key_file = other_key}),
              other_key + ": key values mismatch");
    EXPECT_EQ(error_of({.ca_file = ca, .certificate_file = "/nonexistent", .key_file = key}),
              "/nonexistent: No such file or directory");
}

TEST_F(Tls, DoesNotAskForAPassphrase) {
    const Identity mine = server_identity("DNS:aaa.test");
    std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
    ASSERT_EQ(
        PEM_write_bio_PrivateKey(memory.get(), mine.key.get(), EVP_aes_256_cbc(),
                                 reinterpret_cast<const unsigned char *>("secret"), 6, nullptr, nullptr),
        1);
    char *bytes;
    const long size = BIO_ctrl(memory.get(), BIO_CTRL_INFO, 0, &bytes);
    TlsSettings settings;
    settings.ca_file = file("ca.pem", authority_.certificate_pem());
    settings.certificate_file = file("mine.pem", mine.certificate_pem());
    settings.key_file = file("mine.key", std::string(bytes, static_cast<std::size_t>(size)));
    std::string error;
    EXPECT_EQ(TlsContext::make(settings, error), nullptr);
    EXPECT_EQ(error.find(settings.key_file + ": "), 0U) << error;
}

}  // namespace
}  // namespace net
