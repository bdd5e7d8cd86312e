// SPDX-License-Identifier: Apache-2.0
//
// Authorization packets, against those of another implementation.

#include "tacacs/authorization.hpp"

#include <gmock/gmock.h>

#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

using tacacs_test::body_of;
using testing::ElementsAre;
using testing::IsEmpty;

const Subject kAlice = {.user = "alice",
                        .port = "tty0",
                        .remote_address = "192.0.2.7",
                        .privilege = 15,
                        .method = Method::kTacacs};

std::string made(const Subject &subject, const std::vector<std::string> &arguments,
                 const Protection &protected_by = tacacs_test::protection()) {
    SecretBytes packet = begin_packet(0);
    EXPECT_EQ(append_authorization(subject, arguments, packet), "");
    Session session(Type::kAuthorization, 0, protected_by, tacacs_test::kSession);
    EXPECT_TRUE(session.seal(packet, false));
    return std::string(packet.view());
}

TEST(AuthorizationRequest, CarriesSubjectAndArguments) {
    const std::vector<std::string> show = {"service=shell", "cmd=show", "cmd-arg=version", "cmd-arg=<cr>"};
    EXPECT_EQ(made(kAlice, show), tacacs_test::vector("command"));
    EXPECT_EQ(made(kAlice, show, tacacs_test::tls()), tacacs_test::vector("command_tls"));
    const Subject alice = {.user = "alice", .method = Method::kTacacs};
    EXPECT_EQ(made(alice, {"cmd-arg=" + std::string(247, 'x')}), tacacs_test::vector("longest_argument"));
    std::vector<std::string> most;
    for (int i = 0; i < 255; ++i) {
        most.push_back("a" + std::to_string(i) + "=" + std::to_string(i));
    }
    const std::string longest_name(255, 'u');
    EXPECT_EQ(made({.user = longest_name, .method = Method::kTacacs}, most),
              tacacs_test::vector("most_arguments"));
}

TEST(AuthorizationReply, IsReadFieldByField) {
    AuthorizationReply reply;
    const std::string add = body_of("pass_add", Type::kAuthorization);
    ASSERT_EQ(AuthorizationReply::read(add, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthorizationStatus::kPassAdd);
    EXPECT_THAT(reply.arguments, ElementsAre("priv-lvl=15", "idletime*10"));
    const std::string replace = body_of("pass_repl", Type::kAuthorization);
    ASSERT_EQ(AuthorizationReply::read(replace, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthorizationStatus::kPassReplace);
    EXPECT_THAT(reply.arguments, ElementsAre("cmd=show"));
    EXPECT_EQ(reply.message, "changed");
    EXPECT_EQ(reply.data, "for the log");
    const std::string fail = body_of("not_allowed", Type::kAuthorization);
    ASSERT_EQ(AuthorizationReply::read(fail, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AuthorizationStatus::kFail);
    EXPECT_THAT(reply.arguments, IsEmpty());
    EXPECT_EQ(reply.message, "not you");
}

TEST(AuthorizationReply, OfAnyOtherLengthIsRefused) {
    const std::string body = body_of("pass_repl", Type::kAuthorization);
    AuthorizationReply reply;
    reply.message = "before";
    const auto refuse = [&](const std::string &other) {
        EXPECT_EQ(AuthorizationReply::read(other, reply), Fault::kMalformed) << other.size();
    };
    tacacs_test::for_each_other_length(body, refuse);
    for (std::size_t at = 1; at <= 6; ++at) {  // number of arguments, four bytes of lengths, a length
        for (const int change : {1, 0x80}) {
            std::string other = body;
            other[at] = static_cast<char>(other[at] ^ change);
            refuse(other);
        }
    }
    EXPECT_EQ(reply.message, "before");
}

TEST(AuthorizationReply, WithAnUnknownStatusIsRefused) {
    std::string body = body_of("pass_add", Type::kAuthorization);
    AuthorizationReply reply;
    for (int status = 0; status < 256; ++status) {
        body[0] = static_cast<char>(status);
        const bool is_known =
            status == 1 || status == 2 || status == 0x10 || status == 0x11 || status == 0x21;
        EXPECT_EQ(AuthorizationReply::read(body, reply), is_known ? Fault::kNone : Fault::kMalformed)
            << status;
    }
}

// Whether such an argument must be understood cannot be told.
TEST(AuthorizationReply, WithAnArgumentWithoutNameIsRefused) {
    AuthorizationReply reply;
    EXPECT_EQ(AuthorizationReply::read(std::string("\1\1\0\0\0\0\3a=b", 10), reply), Fault::kNone);
    EXPECT_EQ(AuthorizationReply::read(std::string("\1\1\0\0\0\0\3abc", 10), reply), Fault::kMalformed);
    EXPECT_EQ(AuthorizationReply::read(std::string("\1\1\0\0\0\0\0", 7), reply), Fault::kMalformed);
}

}  // namespace
}  // namespace tacacs
