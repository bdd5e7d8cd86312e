// SPDX-License-Identifier: Apache-2.0
//
// The client over TLS (RFC 9887).

#include <gmock/gmock.h>

#include "net/certificates.hpp"
#include "tacacs/client.hpp"
#include "tacacs/test_server.hpp"

namespace tacacs {
namespace {

using net_test::Identity;
using net_test::make_identity;
using tacacs_test::ascii;
using tacacs_test::Crowd;
using tacacs_test::Fixture;
using tacacs_test::kShow;
using tacacs_test::pap;
using testing::HasSubstr;

constexpr char kUsers[] = R"({"alice": {"password": "wonderland"}, "mallory": {"misbehave": "unencrypted"},
    "eve": {"misbehave": "close-once"}, "held": {"misbehave": "held"}})";

// An authority, and the files of a server and a client that it has signed.
class Tls : public testing::Test {
  protected:
    // The entry of a listener with a certificate.
    std::string listener(const Identity &identity, const std::string &more = "") {
        const std::string name = std::to_string(++files_);
        return R"({"certificate": ")" + directory_.write(name + ".pem", identity.certificate_pem()) +
               R"(", "key": ")" + directory_.write(name + ".key", identity.key_pem()) + "\"" + more + "}";
    }
    Identity signed_for(const std::string &names) {
        return make_identity({.common_name = "server", .alternative_names = names, .issuer = &authority_});
    }
    // A fixture whose client expects the right name from the listener "main".
    std::unique_ptr<Fixture> fixture(const std::string &main_listener, const std::string &more = "") {
        auto made = std::make_unique<Fixture>(kUsers, R"({"main": )" + main_listener + more + "}");
        made->settings.secret.clear();
        made->settings.tls = {{.ca_file = ca_file_, .certificate_file = "", .key_file = ""}, "tacacs.test"};
        return made;
    }
    // That nothing was asked over a connection whose server is not the right one.
    void expect_refused(const std::string &main_listener, const std::string &text) {
        const std::unique_ptr<Fixture> made = fixture(main_listener);
        const AuthenticationOutcome outcome = made->log_in(pap("alice", "wonderland"));
        EXPECT_EQ(outcome.result, Result::kRefused);
        EXPECT_THAT(outcome.text, HasSubstr("cannot connect to " + made->settings.address.text()));
        EXPECT_THAT(outcome.text, HasSubstr(text));
        EXPECT_EQ(made->authorize("alice", kShow).result, Result::kRefused);
        EXPECT_EQ(made->server.seen("alice"), 0u);
    }

    const Identity authority_ =
        make_identity({.common_name = "Authority", .alternative_names = "", .is_authority = true});
    TempDir directory_;
    const std::string ca_file_ = directory_.write("ca.pem", authority_.certificate_pem());
    int files_ = 0;
};

TEST_F(Tls, CarriesEverythingOverOneConnection) {
    const std::unique_ptr<Fixture> made = fixture(listener(signed_for("DNS:tacacs.test")));
    EXPECT_EQ(made->log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
    EXPECT_EQ(made->log_in(ascii("")).status, AuthenticationStatus::kGetUser);
    EXPECT_EQ(made->answer("alice").status, AuthenticationStatus::kGetPassword);
    EXPECT_EQ(made->answer("wonderland").status, AuthenticationStatus::kPass);
    EXPECT_EQ(made->authorize("alice", kShow).status, AuthorizationStatus::kPassAdd);
    EXPECT_EQ(made->account(Record::kStop, "alice", {"task_id=7"}).result, Result::kAnswer);
    Crowd crowd(*made, 100, "alice");
    crowd.run();
    EXPECT_EQ(crowd.answers, 100);
    EXPECT_EQ(made->get().counters().connections, 1u);
}

TEST_F(Tls, CarriesEachQuestionOverAConnectionOfItsOwn) {
    const std::unique_ptr<Fixture> made =
        fixture(listener(signed_for("DNS:tacacs.test"), R"(, "single_connection": false)"));
    EXPECT_EQ(made->log_in(ascii("alice")).status, AuthenticationStatus::kGetPassword);
    EXPECT_EQ(made->answer("wonderland").status, AuthenticationStatus::kPass);
    EXPECT_EQ(made->authorize("alice", kShow).status, AuthorizationStatus::kPassAdd);
    EXPECT_EQ(made->get().counters().connections, 2u);
}

TEST_F(Tls, AcceptsAnAddressAsName) {
    const std::unique_ptr<Fixture> made = fixture(listener(signed_for("IP:127.0.0.1")));
    made->settings.tls->name = "127.0.0.1";
    EXPECT_EQ(made->log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

TEST_F(Tls, ReplacesALostConnection) {
    const std::unique_ptr<Fixture> made = fixture(listener(signed_for("DNS:tacacs.test")));
    const AuthorizationOutcome outcome = made->authorize("eve", kShow);
    EXPECT_EQ(outcome.result, Result::kAnswer) << outcome.text;
    EXPECT_EQ(outcome.tries, 2u);
    made->server.command("drop");
    made->run_until([&] { return made->get().counters().open_connections == 0; });
    EXPECT_EQ(made->log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

TEST_F(Tls, RefusesAServerThatIsNotTheRightOne) {
    expect_refused(
        listener(signed_for("DNS:other.test")),
        "hostname mismatch: \"tacacs.test\" is expected, and the certificate is for \"other.test\"");
    const Identity expired = make_identity({.common_name = "server",
                                            .alternative_names = "DNS:tacacs.test",
                                            .begins = -7200,
                                            .ends = -3600,
                                            .issuer = &authority_});
    expect_refused(listener(expired), "expired");
    expect_refused(listener(make_identity({.common_name = "server", .alternative_names = "DNS:tacacs.test"})),
                   "certificate");
}

TEST_F(Tls, RefusesVersionsBefore13) {
    expect_refused(listener(signed_for("DNS:tacacs.test"), R"(, "old_tls": true)"),
                   "it may not speak TLS there, or only versions before 1.3");
}

// An attacker who removes TLS must not get a password.
TEST_F(Tls, IsNeverReplacedByPlainTcp) {
    const std::unique_ptr<Fixture> made = fixture("{}");
    const AuthenticationOutcome outcome = made->log_in(pap("alice", "wonderland"));
    EXPECT_EQ(outcome.result, Result::kRefused);
    made->server.wait_for("close 1");
    EXPECT_EQ(made->server.seen("refused 1 head"), 1u);  // TLS does not begin with a packet
    made->server.lines.clear();                          // the fixture expects no refusals
}

// OpenSSL may take the first bytes for a long packet of SSL 2 and wait.
TEST_F(Tls, IsNoticedByAClientWithoutIt) {
    const std::unique_ptr<Fixture> made = fixture(listener(signed_for("DNS:tacacs.test")));
    made->settings.tls.reset();
    made->settings.timeout = 50 * net::kMillisecond;
    made->settings.secret = SecretBytes("tac-secret");
    const AuthenticationOutcome outcome = made->log_in(pap("alice", "wonderland"));
    EXPECT_NE(outcome.result, Result::kAnswer);
    EXPECT_THAT(outcome.text, HasSubstr(made->settings.address.text()));
}

TEST_F(Tls, ShowsACertificateToServersThatWantOne) {
    const std::string wants =
        listener(signed_for("DNS:tacacs.test"), R"(, "authority": ")" + ca_file_ + "\"");
    const std::unique_ptr<Fixture> without = fixture(wants);
    EXPECT_NE(without->log_in(pap("alice", "wonderland")).result, Result::kAnswer);
    EXPECT_EQ(without->server.seen("alice"), 0u);
    const Identity router = signed_for("DNS:router.test");
    const std::unique_ptr<Fixture> with = fixture(wants);
    with->settings.tls->settings.certificate_file = directory_.write("router.pem", router.certificate_pem());
    with->settings.tls->settings.key_file = directory_.write("router.key", router.key_pem());
    EXPECT_EQ(with->log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

TEST_F(Tls, RefusesObfuscatedAnswers) {
    const std::unique_ptr<Fixture> made = fixture(listener(signed_for("DNS:tacacs.test")));
    const AuthorizationOutcome outcome = made->authorize("mallory", kShow);
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_EQ(outcome.fault, Fault::kObfuscated);
    EXPECT_EQ(made->log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

TEST_F(Tls, NeedsItsFilesAndAName) {
    net::Loop loop;
    ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", kTlsPort);
    settings.tls = {{.ca_file = "/nonexistent/ca.pem", .certificate_file = "", .key_file = ""},
                    "tacacs.test"};
    std::string error;
    EXPECT_EQ(Client::make(loop, settings, error), nullptr);
    EXPECT_THAT(error, HasSubstr("/nonexistent/ca.pem"));
    settings.tls = {{.ca_file = ca_file_, .certificate_file = "", .key_file = ""}, ""};
    EXPECT_EQ(Client::make(loop, settings, error), nullptr);
    EXPECT_THAT(error, HasSubstr("name"));
    settings.tls->name = "tacacs.test";
    EXPECT_NE(Client::make(loop, settings, error), nullptr) << error;
}

}  // namespace
}  // namespace tacacs
