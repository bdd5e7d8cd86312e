// SPDX-License-Identifier: Apache-2.0
//
// Heads, sessions and obfuscation.

#include "tacacs/packet.hpp"

#include <set>

#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

using tacacs_test::kSession;
using tacacs_test::packet;
using tacacs_test::protection;
using tacacs_test::waiting_session;

const Head kAnswer = {.minor = 0, .type = Type::kAuthentication, .sequence = 2, .session = kSession};

Fault open(std::string bytes, const Protection &protected_by = protection()) {
    Session session = waiting_session(Type::kAuthentication, 0, 2, protected_by);
    Head head;
    return session.open(bytes, head);
}

TEST(Head, IsReadFieldByField) {
    Head head;
    ASSERT_EQ(read_head(tacacs_test::from_hex("c103fe0589abcdef0000ffff"), head), Fault::kNone);
    EXPECT_EQ(head.minor, 1);
    EXPECT_EQ(head.type, Type::kAccounting);
    EXPECT_EQ(head.sequence, 254);
    EXPECT_EQ(head.flags, kFlagUnencrypted | kFlagSingleConnection);
    EXPECT_EQ(head.session, 0x89abcdefu);
    EXPECT_EQ(head.length, 65535u);
}

TEST(Head, OfAnotherProtocolIsRefused) {
    Head head;
    for (const char *digits :
         {"b103fe0589abcdef00000000", "d103fe0589abcdef00000000", "c100fe0589abcdef00000000",
          "c104fe0589abcdef00000000", "c103fe0589abcdef0000"}) {
        EXPECT_EQ(read_head(tacacs_test::from_hex(digits), head), Fault::kNotTacacs) << digits;
    }
    EXPECT_EQ(read_head("HTTP/1.1 400 Bad Request", head), Fault::kNotTacacs);
}

TEST(Head, OfALongerBodyThanTheLimitIsRefused) {
    Head head;
    EXPECT_EQ(read_head(tacacs_test::from_hex("c103fe0589abcdef00010000"), head), Fault::kTooLong);
    EXPECT_EQ(read_head(tacacs_test::from_hex("c103fe0589abcdefffffffff"), head), Fault::kTooLong);
}

TEST(Session, UncoversAnAnswer) {
    Session session = waiting_session(Type::kAuthentication);
    std::string bytes = packet(kAnswer, "a body that is longer than one block of the pad");
    EXPECT_EQ(bytes.find("body"), std::string::npos);
    Head head;
    ASSERT_EQ(session.open(bytes, head), Fault::kNone);
    EXPECT_EQ(bytes.substr(kHeadSize), "a body that is longer than one block of the pad");
    EXPECT_EQ(head.sequence, 2);
}

TEST(Session, RefusesAnAnswerOfAnotherSessionTypeOrTurn) {
    EXPECT_EQ(open(packet(kAnswer, "x")), Fault::kNone);
    Head head = kAnswer;
    head.session ^= 1;
    EXPECT_EQ(open(packet(head, "x")), Fault::kOtherSession);
    head = kAnswer;
    head.type = Type::kAuthorization;
    EXPECT_EQ(open(packet(head, "x")), Fault::kOtherType);
    for (const int sequence : {0, 1, 3, 4, 255}) {
        head = kAnswer;
        head.sequence = static_cast<std::uint8_t>(sequence);
        EXPECT_EQ(open(packet(head, "x")), Fault::kSequence) << sequence;
    }
}

TEST(Session, RefusesAnAnswerBeforeItAsked) {
    Session session(Type::kAuthentication, 0, protection(), kSession);
    std::string bytes = packet(kAnswer, "x");
    Head head;
    EXPECT_EQ(session.open(bytes, head), Fault::kOtherSession);
}

TEST(Session, RefusesAnAnswerThatIsNotWhole) {
    EXPECT_EQ(open(packet(kAnswer, "x") + "y"), Fault::kMalformed);
    Head head = kAnswer;
    head.length = 2;
    EXPECT_EQ(open(packet(head, "x")), Fault::kMalformed);
    EXPECT_EQ(open(""), Fault::kNotTacacs);
}

// Somebody on the way who cannot obfuscate must not be able to answer in clear.
TEST(Session, RefusesAnAnswerInClearUnlessTlsProtectsIt) {
    Head head = kAnswer;
    head.flags = kFlagUnencrypted;
    EXPECT_EQ(open(packet(head, "x")), Fault::kUnencrypted);
    EXPECT_EQ(open(packet(kAnswer, "x", tacacs_test::tls()), tacacs_test::tls()), Fault::kNone);
    EXPECT_EQ(open(packet(kAnswer, "x"), tacacs_test::tls()), Fault::kObfuscated);
}

TEST(Session, CountsUpByTwoUntilNoAnswerWouldHaveANumber) {
    Session session(Type::kAuthentication, 0, tacacs_test::tls(), kSession);
    int sealed = 0;
    for (;; ++sealed) {
        SecretBytes request = begin_packet(0);
        const bool could = sealed == 0 || session.can_go_on();
        ASSERT_EQ(session.seal(request, false), could);
        if (!could) {
            break;
        }
        EXPECT_EQ(static_cast<unsigned char>(request.view()[2]), 2 * sealed + 1);
        Head head = kAnswer;
        head.sequence = static_cast<std::uint8_t>(2 * sealed + 2);
        std::string bytes = packet(head, "x", tacacs_test::tls());
        EXPECT_EQ(session.open(bytes, head), Fault::kNone);
    }
    EXPECT_EQ(sealed, 127);
}

TEST(Session, RefusesABodyAboveTheLimit) {
    Session session(Type::kAuthentication, 0, protection(), kSession);
    SecretBytes request = begin_packet(0);
    request.append(std::string(kMaxBody + 1, 'x'));
    EXPECT_FALSE(session.seal(request, false));
    request = begin_packet(0);
    request.append(std::string(kMaxBody, 'x'));
    EXPECT_TRUE(session.seal(request, false));
    SecretBytes no_room;
    EXPECT_FALSE(session.seal(no_room, false));
}

TEST(Session, WithoutASecretSendsNothing) {
    const Protection none = Protection::secret("");
    Session session(Type::kAuthentication, 0, none, kSession);
    SecretBytes request = begin_packet(0);
    EXPECT_FALSE(session.seal(request, false));
}

TEST(Session, HasARandomId) {
    std::set<std::uint32_t> ids;
    for (int i = 0; i < 100; ++i) {
        const Session session(Type::kAccounting, 0, protection());
        EXPECT_TRUE(session.usable());
        ids.insert(session.id());
    }
    EXPECT_GE(ids.size(), 99u);  // two of 100 are equal once in a million runs
}

TEST(Fault, EachHasItsText) {
    std::set<std::string> texts;
    for (int fault = 0; fault <= static_cast<int>(Fault::kNoDigest); ++fault) {
        texts.insert(text_of(static_cast<Fault>(fault)));
    }
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(Fault::kNoDigest) + 1);
}

}  // namespace
}  // namespace tacacs
