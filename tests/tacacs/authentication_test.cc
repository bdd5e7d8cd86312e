// SPDX-License-Identifier: Apache-2.0
//
// Authentication packets, against those of another implementation.

#include "tacacs/authentication.hpp"

#include <gmock/gmock.h>

#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

using tacacs_test::body_of;
using tacacs_test::kSession;
using tacacs_test::protection;
using testing::HasSubstr;

const Subject kAlice = {.user = "alice", .port = "tty0", .remote_address = "192.0.2.7", .privilege = 1};

std::string made(const Start &start, const Protection &protected_by = protection(), bool single = false) {
    SecretBytes packet = begin_packet(0);
    EXPECT_EQ(append_start(start, packet), "");
    Session session(Type::kAuthentication, minor_of(start.subject.type), protected_by, kSession);
    EXPECT_TRUE(session.seal(packet, single));
    return std::string(packet.view());
}

// The packet with the sequence number 3.
std::string made_later(SecretBytes packet) {
    Session session = tacacs_test::waiting_session(Type::kAuthentication);
    EXPECT_TRUE(session.seal(packet, false));
    return std::string(packet.view());
}

std::string refusal(const Start &start) {
    SecretBytes packet = begin_packet(0);
    return append_start(start, packet);
}

TEST(Start, IsMadeForEachTypeOfLogin) {
    EXPECT_EQ(made({kAlice}), tacacs_test::vector("ascii_start"));
    EXPECT_EQ(made({kAlice}, protection(), true), tacacs_test::vector("ascii_start_single"));
    EXPECT_EQ(made({kAlice}, tacacs_test::tls()), tacacs_test::vector("ascii_start_tls"));
    Subject subject = kAlice;
    subject.type = AuthenticationType::kPap;
    EXPECT_EQ(made({subject, Action::kLogin, "wonderland"}), tacacs_test::vector("pap_start"));
    subject.type = AuthenticationType::kChap;
    subject.service = Service::kPpp;
    subject.privilege = 0;
    const SecretBytes data =
        data_of_chap(5, "challenge-of-16b", tacacs_test::from_hex("000102030405060708090a0b0c0d0e0f"));
    EXPECT_EQ(made({subject, Action::kLogin, data.view()}), tacacs_test::vector("chap_start"));
    subject = kAlice;
    subject.service = Service::kEnable;
    subject.privilege = 15;
    EXPECT_EQ(made({subject}), tacacs_test::vector("enable_start"));
    subject = kAlice;
    subject.privilege = 0;
    EXPECT_EQ(made({subject, Action::kChangePassword}), tacacs_test::vector("chpass_start"));
}

TEST(Start, RefusesWhatDoesNotFit) {
    const std::string longer(256, 'x');
    EXPECT_THAT(refusal({{.user = longer}}), HasSubstr("the user name has 256 bytes"));
    EXPECT_THAT(refusal({{.port = longer}}), HasSubstr("the port has 256 bytes"));
    EXPECT_THAT(refusal({{.remote_address = longer}}), HasSubstr("the remote address has 256 bytes"));
    EXPECT_THAT(refusal({{.user = std::string_view("root\0x", 6)}}),
                HasSubstr("the user name contains a NUL"));
    EXPECT_THAT(refusal({{.user = "alice", .type = AuthenticationType::kNotSet}}),
                HasSubstr("ASCII, PAP or CHAP"));
    Subject pap = kAlice;
    pap.type = AuthenticationType::kPap;
    EXPECT_THAT(refusal({pap, Action::kLogin, longer}), HasSubstr("the password has 256 bytes"));
    EXPECT_THAT(refusal({pap, Action::kChangePassword}), HasSubstr("only with the type ASCII"));
    Subject chap = kAlice;
    chap.type = AuthenticationType::kChap;
    EXPECT_THAT(refusal({chap, Action::kLogin, "0123456789abcdef."}),
                HasSubstr("a challenge and a response"));
    EXPECT_EQ(refusal({chap, Action::kLogin, "0123456789abcdef.."}), "");
}

TEST(Chap, NeedsAResponseOf16BytesAndAChallenge) {
    EXPECT_TRUE(data_of_chap(1, "challenge", "15 bytes ......").empty());
    EXPECT_TRUE(data_of_chap(1, "challenge", "17 bytes ........").empty());
    EXPECT_TRUE(data_of_chap(1, "", "16 bytes .......").empty());
    EXPECT_EQ(data_of_chap(1, "c", "16 bytes .......").view(), "\1c16 bytes .......");
}

TEST(Continue, CarriesWhatTheUserTyped) {
    SecretBytes packet = begin_packet(0);
    EXPECT_EQ(append_continue("wonderland", packet), "");
    EXPECT_EQ(made_later(std::move(packet)), tacacs_test::vector("password"));
    packet = begin_packet(0);
    EXPECT_EQ(append_continue(std::string(65530, 'p'), packet), "");
    EXPECT_EQ(made_later(std::move(packet)), tacacs_test::vector("longest_password"));
    packet = begin_packet(0);
    EXPECT_THAT(append_continue(std::string(65531, 'p'), packet), HasSubstr("at most 65530"));
}

TEST(Continue, EndsALoginThatTheUserHasLeft) {
    SecretBytes packet = begin_packet(0);
    append_abort("the user has left", packet);
    EXPECT_EQ(made_later(std::move(packet)), tacacs_test::vector("abort"));
    packet = begin_packet(0);
    append_abort(std::string(1000, 'x'), packet);
    EXPECT_EQ(packet.size(), kHeadSize + 5 + 255);
}

TEST(AuthenticationReply, IsReadFieldByField) {
    AuthenticationReply reply;
    const std::string get_pass = body_of("get_pass", Type::kAuthentication);
    ASSERT_EQ(AuthenticationReply::read(get_pass, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthenticationStatus::kGetPassword);
    EXPECT_TRUE(reply.hides_input);
    EXPECT_EQ(reply.message, "Password: ");
    EXPECT_EQ(reply.data, "");
    const std::string get_data = body_of("get_data", Type::kAuthentication, 0, 4);
    ASSERT_EQ(AuthenticationReply::read(get_data, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthenticationStatus::kGetData);
    EXPECT_FALSE(reply.hides_input);
    EXPECT_EQ(reply.message, "Token: ");
    EXPECT_EQ(reply.data, "a token is needed");
    const std::string fail = body_of("fail", Type::kAuthentication, 1);
    ASSERT_EQ(AuthenticationReply::read(fail, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthenticationStatus::kFail);
    const std::string pass = body_of("pass_tls", Type::kAuthentication, 0, 2, tacacs_test::tls());
    ASSERT_EQ(AuthenticationReply::read(pass, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthenticationStatus::kPass);
}

TEST(AuthenticationReply, OfAnyOtherLengthIsRefused) {
    const std::string body = body_of("get_data", Type::kAuthentication, 0, 4);
    AuthenticationReply reply;
    tacacs_test::for_each_other_length(body, [&](const std::string &other) {
        EXPECT_EQ(AuthenticationReply::read(other, reply), Fault::kMalformed) << other.size();
    });
    for (const std::size_t at : {2u, 3u, 4u, 5u}) {
        for (const int change : {1, 0x80}) {
            std::string other = body;
            other[at] = static_cast<char>(other[at] ^ change);
            EXPECT_EQ(AuthenticationReply::read(other, reply), Fault::kMalformed) << at;
        }
    }
}

TEST(AuthenticationReply, WithAnUnknownStatusOrFlagIsRefused) {
    std::string body = body_of("get_pass", Type::kAuthentication);
    AuthenticationReply reply;
    for (int status = 0; status < 256; ++status) {
        body[0] = static_cast<char>(status);
        const bool is_known = (status >= 1 && status <= 7) || status == 0x21;
        EXPECT_EQ(AuthenticationReply::read(body, reply), is_known ? Fault::kNone : Fault::kMalformed)
            << status;
    }
    body[0] = 1;
    body[1] = 2;
    EXPECT_EQ(AuthenticationReply::read(body, reply), Fault::kMalformed);
}

// The usual sign of a server with another secret.
TEST(AuthenticationReply, WithAnotherSecretIsInconsistent) {
    const Protection other = Protection::secret("other");
    Session session = tacacs_test::waiting_session(Type::kAuthentication, 0, 2, other);
    std::string bytes = tacacs_test::vector("get_pass");
    Head head;
    ASSERT_EQ(session.open(bytes, head), Fault::kNone);
    AuthenticationReply reply;
    EXPECT_EQ(AuthenticationReply::read(std::string_view(bytes).substr(kHeadSize), reply), Fault::kMalformed);
}

}  // namespace
}  // namespace tacacs
