// SPDX-License-Identifier: Apache-2.0
//
// Servers over TLS through aaad, as the system database names them and their files.

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <poll.h>

#include "net/certificates.hpp"
#include "radius/freeradius.hpp"
#include "service/groups/group_fixture.hpp"
#include "tacacs/test_server.hpp"

namespace groups_test {
namespace {

using net_test::Identity;
using net_test::make_crl;
using net_test::make_identity;
using net_test::Wanted;
using tacacs_test::TestServer;

// A server whose client has shown the wrong certificate sends an alert, which is lost when the
// connection is reset at once. Waits until one of the two is in the log.
void expect_alert_or_guess(Aaad &aaad, const std::string &alert, const std::string &guess) {
    EXPECT_TRUE(aaad.wait_for_log("the next method is asked"));
    const std::string log = aaad.log();
    EXPECT_TRUE(log.find(alert) != std::string::npos || log.find(guess) != std::string::npos) << log;
}

constexpr char kUsers[] = R"({"alice": {"password": "secret"}})";

class AaadTls : public GroupTest {
  protected:
    Identity signed_for(const std::string &names, long ends = 3600) {
        return make_identity({.common_name = "server",
                              .alternative_names = names,
                              .begins = -7200,
                              .ends = ends,
                              .issuer = &authority_});
    }
    // A server that shows a certificate. With `demands` it wants one of the same authority.
    void serve(const Identity &identity, bool demands = false) {
        const std::string more =
            demands ? R"(, "authority": ")" + files_.write("clients.pem", authority_.certificate_pem()) + "\""
                    : "";
        server_ = std::make_unique<TestServer>(
            loop_,
            R"({"main": {"certificate": ")" + files_.write("server.pem", identity.certificate_pem()) +
                R"(", "key": ")" + files_.write("server.key", identity.key_pem()) + "\"" + more + "}}",
            kUsers);
        entry_ = "127.0.0.1," + std::to_string(server_->address().port());
        aaad_.number("group-server/tacacs/corp/server/0/" + entry_, 1);
        setting("transport", "tls");
        setting("server-name", "tacacs.test");
        setting("ca-file", files_.write("ca.pem", authority_.certificate_pem()));
        lists({"corp", AAA_METHOD_LOCAL});
    }
    void setting(const std::string &name, const std::string &value) { set_text("tacacs", "", name, value); }
    void show(const Identity &identity) {
        setting("certificate-file", files_.write("mine.pem", identity.certificate_pem()));
        setting("key-file", files_.write("mine.key", identity.key_pem()));
    }
    Reply log_in() { return aaad_.login(ask_as("alice", "secret")); }
    // The local method has another password for alice: it refuses this one.
    void expect_server_passes() {
        const Reply reply = log_in();
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS}) << reply.text;
    }
    void expect_not_asked() {
        EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
        EXPECT_EQ(server_->seen("alice"), 0u) << "no password may reach it";
    }
    void expect_not_asked(const std::string &reason) {
        expect_not_asked();
        EXPECT_TRUE(aaad_.wait_for_log(reason)) << reason;
    }

    const Identity authority_ =
        make_identity({.common_name = "Authority", .alternative_names = "", .is_authority = true});
    TempDir files_;
    std::unique_ptr<TestServer> server_;
    std::string entry_;
};

TEST_F(AaadTls, TheRightCertificateIsAskedEverything) {
    serve(signed_for("DNS:tacacs.test"));
    aaad_.start();
    expect_server_passes();
    Ask ask = ask_as("alice", std::nullopt);
    ask.command = "show version";
    EXPECT_EQ(aaad_.client().authorize(ask).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(aaad_.client().account(ask).result, AAA_OK);
    server_->wait_for("task_id=4711");
    EXPECT_EQ(server_->seen("open"), 1u) << "one connection for all";
}

TEST_F(AaadTls, AnAddressIsTheNameWhereNoOtherIsSet) {
    serve(signed_for("IP:127.0.0.1"));
    aaad_.remove("group-server/tacacs/corp/settings/server-name");
    aaad_.start();
    expect_server_passes();
}

TEST_F(AaadTls, ACertificateThatProvesNothingIsToldNothing) {
    const Identity stranger =
        make_identity({.common_name = "Stranger", .alternative_names = "", .is_authority = true});
    const Wanted foreign = {
        .common_name = "server", .alternative_names = "DNS:tacacs.test", .issuer = &stranger};
    const struct {
        Identity identity;
        const char *reason;
    } rows[] = {
        {signed_for("DNS:other.test"),
         "hostname mismatch: \"tacacs.test\" is expected, and the certificate is for \"other.test\""},
        {signed_for("DNS:tacacs.test", -3600), "certificate has expired"},
        {make_identity(foreign), "unable to get local issuer certificate"},
    };
    bool started = false;
    for (const auto &row : rows) {
        if (!entry_.empty()) {
            aaad_.remove("group-server/tacacs/corp/server/0/" + entry_);
        }
        serve(row.identity);
        if (!std::exchange(started, true)) {
            aaad_.start();
        }
        aaad_.reload();
        expect_not_asked(std::string("the server's certificate is refused: ") + row.reason);
    }
}

TEST_F(AaadTls, AServerThatDemandsACertificateGetsIt) {
    serve(signed_for("DNS:tacacs.test"), true);
    aaad_.start();
    expect_not_asked();
    expect_alert_or_guess(aaad_, "certificate required", "it may demand a certificate of this side");
    show(make_identity(
        {.common_name = "router", .alternative_names = "DNS:router.test", .issuer = &authority_}));
    aaad_.reload();
    expect_server_passes();
}

TEST_F(AaadTls, FilesThatHaveChangedCountAfterAReload) {
    const Identity stranger =
        make_identity({.common_name = "Stranger", .alternative_names = "", .is_authority = true});
    serve(signed_for("DNS:tacacs.test"), true);
    show(make_identity({.common_name = "router", .alternative_names = "", .issuer = &stranger}));
    files_.write("ca.pem", stranger.certificate_pem());
    aaad_.start();
    expect_not_asked("self-signed certificate in certificate chain");
    files_.write("ca.pem", authority_.certificate_pem());
    aaad_.reload();
    expect_not_asked();
    expect_alert_or_guess(aaad_, "unknown ca", "or not trust the one that it was shown");
    show(make_identity({.common_name = "router", .alternative_names = "", .issuer = &authority_}));
    aaad_.reload();
    expect_server_passes();
}

// In clear text, everyone on the way would read passwords.
TEST_F(AaadTls, AFileThatCannotBeUsedNeverLeadsToClearText) {
    serve(signed_for("DNS:tacacs.test"));
    show(signed_for("DNS:router.test"));
    const std::string key = files_.read("mine.key");
    files_.write("mine.key", "no key\n");
    aaad_.start();
    const std::string cannot = "the server tacacs/" + entry_ + " cannot be asked: ";
    expect_not_asked(cannot + files_.path("mine.key") + ": ");
    const auto [status, output] = aaad_.run({"--check"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find(cannot + files_.path("mine.key") + ": "), std::string::npos) << output;
    EXPECT_EQ(unlink(files_.path("mine.key").c_str()), 0);
    aaad_.reload();
    expect_not_asked(cannot + files_.path("mine.key") + ": No such file or directory");
    aaad_.remove("group-server/tacacs/corp/settings/key-file");
    aaad_.reload();
    expect_not_asked("a certificate needs a key file too");
    EXPECT_EQ(server_->seen("open"), 0u) << "nothing was even connected";
    files_.write("mine.key", key);
    setting("key-file", files_.path("mine.key"));
    aaad_.reload();
    expect_server_passes();
}

TEST_F(AaadTls, ARevokedCertificateIsRefusedFromTheNextReloadOn) {
    const Identity server = signed_for("DNS:tacacs.test");
    serve(server);
    setting("crl-file", files_.write("lists.pem", make_crl(authority_, {})));
    aaad_.start();
    expect_server_passes();
    files_.write("lists.pem", make_crl(authority_, {&server}));
    aaad_.reload();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL}) << "though a connection is open";
    EXPECT_TRUE(aaad_.wait_for_log("the server's certificate is refused: certificate revoked"));
}

TEST_F(AaadTls, ARevocationListThatIsOutOfDateIsNamed) {
    serve(signed_for("DNS:tacacs.test"));
    setting("crl-file", files_.write("lists.pem", make_crl(authority_, {}, -7200, -3600)));
    aaad_.start();
    expect_not_asked("lists.pem: the revocation list of CN=Authority is out of date since ");
    files_.write("lists.pem", make_crl(authority_, {}));
    aaad_.reload();
    expect_server_passes();
}

// ---- RADIUS over TLS, at another implementation

class AaadRadsec : public GroupTest {
  protected:
    void SetUp() override {
        if (!radius_test::FreeRadius::is_installed()) {
            GTEST_SKIP() << radius_test::FreeRadius::kMissing;
        }
        server_ = std::make_unique<radius_test::FreeRadius>();
        ASSERT_TRUE(server_->usable()) << server_->log();
        const std::string port = std::to_string(server_->tls_port());
        aaad_.number("group-server/radius/corp/server/0/127.0.0.1," + port + "," + port, 1);
        setting("transport", "tls");
        setting("server-name", "aaa.test");
        setting("ca-file", server_->file("ca.pem"));
        lists({"corp", AAA_METHOD_LOCAL});
        aaad_.users("alice:" + aaad_test::hash_of("from the file") + ":1\n");
    }
    void setting(const std::string &name, const std::string &value) { set_text("radius", "", name, value); }
    void show_certificate() {
        setting("certificate-file", server_->file("client.pem"));
        setting("key-file", server_->file("client.key"));
    }

    std::unique_ptr<radius_test::FreeRadius> server_;
};

TEST_F(AaadRadsec, LogsInAndRecords) {
    show_certificate();
    aaad_.start();
    Client client = aaad_.client();
    const Reply reply = client.authenticate();
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.text, "Hello, Alice");
    EXPECT_EQ(client.account(Ask()).result, AAA_OK);
    // Answered before the server has it. Without it the test ends at its time limit.
    while (server_->detail().find("Acct-Status-Type = Start") == std::string::npos) {
        poll(nullptr, 0, 20);
    }
}

TEST_F(AaadRadsec, WithoutItsCertificateOrTheRightNameTheNextMethodIsAsked) {
    aaad_.start();
    EXPECT_EQ(aaad_.login(ask_as("alice", "from the file")).method, uint32_t{AAA_METHOD_LOCAL});
    expect_alert_or_guess(aaad_, "certificate required", "it may demand a certificate of this side");
    show_certificate();
    setting("server-name", "other.test");
    aaad_.reload();
    EXPECT_EQ(aaad_.login(ask_as("alice", "from the file")).method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_TRUE(aaad_.wait_for_log(
        "hostname mismatch: \"other.test\" is expected, and the certificate is for \"aaa.test\""));
    setting("server-name", "aaa.test");
    aaad_.reload();
    EXPECT_EQ(aaad_.login().text, "Hello, Alice");
}

}  // namespace
}  // namespace groups_test
