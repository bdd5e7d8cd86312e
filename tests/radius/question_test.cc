// SPDX-License-Identifier: Apache-2.0

#include "radius/question.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/answer.hpp"
#include "radius/bytes.hpp"

namespace radius {
namespace {

using radius_test::from_hex;

constexpr char kSecret[] = "testing123";

std::string error_of(const Question &question) {
    std::string error;
    EXPECT_EQ(make_request(question, 1, kSecret, 0, error), nullptr);
    return error;
}

std::unique_ptr<Request> request_of(const Question &question, std::uint32_t more_delay = 0) {
    std::string error;
    auto request = make_request(question, 7, kSecret, more_delay, error);
    EXPECT_NE(request, nullptr) << error;
    return request;
}

// What follows the head and the Message-Authenticator.
std::string attributes_of(const Request &request) {
    return std::string(request.bytes().substr(kHeadSize + kAttributeHead + kDigestSize));
}

TEST(RadiusQuestion, BecomesTheSamePacketAsOneThatIsMadeByHand) {
    Question question = Question::access();
    ASSERT_TRUE(question.add(Type::kUserName, "alice"));
    ASSERT_TRUE(question.add_number(Type::kNasPort, 3));
    ASSERT_TRUE(question.add_vendor(32473, 1, "group"));
    const auto request = request_of(question);
    EXPECT_EQ(request->code(), Code::kAccessRequest);
    EXPECT_EQ(request->id(), 7);
    EXPECT_EQ(attributes_of(*request), from_hex("0107616c696365 050600000003 1a0d00007ed901 07") + "group");
}

TEST(RadiusQuestion, CarriesAPasswordOrAChapResponse) {
    Question question = Question::access();
    question.set_password("secret");
    EXPECT_EQ(attributes_of(*request_of(question)).substr(0, 2), from_hex("0212"));
    question.set_chap({.id = 9, .response = std::string(16, 'r'), .challenge = "challenge"});
    EXPECT_EQ(attributes_of(*request_of(question)),
              from_hex("031309") + std::string(16, 'r') + from_hex("3c0b") + "challenge");
    question.set_password("");
    EXPECT_EQ(attributes_of(*request_of(question)).size(), 18U);
}

TEST(RadiusQuestion, DescribesAnEventOfASession) {
    const Question question = Question::accounting({.status = AccountingStatus::kStop,
                                                    .session_id = "s1",
                                                    .event_time = 0x65000000,
                                                    .delay = 2,
                                                    .classes = {"one", "two"},
                                                    .session_time = 60,
                                                    .terminate_cause = 1});
    const auto request = request_of(question, 3);
    EXPECT_EQ(request->code(), Code::kAccountingRequest);
    EXPECT_EQ(attributes_of(*request), from_hex("280600000002 2c047331 370665000000 290600000005"
                                                "19056f6e65 190574776f 2e060000003c 310600000001"));
    EXPECT_EQ(attributes_of(*request_of(Question::accounting({.session_id = "s1"}))),
              from_hex("280600000001 2c047331 370600000000 290600000000"));
}

TEST(RadiusQuestion, DoesNotLetTheDelayOverflow) {
    const Question question = Question::accounting({.session_id = "s", .delay = UINT32_MAX - 1});
    EXPECT_EQ(attributes_of(*request_of(question, 5)).substr(15), from_hex("2906ffffffff"));
}

TEST(RadiusQuestion, RefusesValuesThatDoNotFit) {
    Question question = Question::access();
    EXPECT_TRUE(question.add(Type::kUserName, std::string(253, 'u')));
    EXPECT_FALSE(question.add(Type::kUserName, std::string(254, 'u')));
    EXPECT_TRUE(question.add_vendor(32473, 1, std::string(247, 'v')));
    EXPECT_FALSE(question.add_vendor(32473, 1, std::string(248, 'v')));
    while (question.add(Type::kProxyState, std::string(200, 'p'))) {
    }
    while (question.add(Type::kProxyState, "")) {
    }
    EXPECT_LE(question.attributes().bytes().size(), kMaxPacket);
    EXPECT_EQ(error_of(question), "the attributes do not fit into a packet of 4096 bytes");
}

// A caller that adds one of these would send it twice, or with a digest of its own.
TEST(RadiusQuestion, RefusesAttributesThatTheClientMakes) {
    Question question = Question::access();
    for (const int type : {2, 3, 25, 40, 41, 44, 46, 49, 55, 60, 80}) {
        EXPECT_FALSE(question.add(static_cast<Type>(type), "x")) << type;
        EXPECT_FALSE(question.add_number(static_cast<Type>(type), 1)) << type;
    }
    EXPECT_TRUE(question.attributes().bytes().empty());
}

TEST(RadiusQuestion, IsRefusedWhenThePasswordMakesItTooLong) {
    Question question = Question::access();
    // Leaves 17 bytes, and a hidden password has 18.
    for (std::size_t left = kMaxPacket - kHeadSize - 18 - 17; left > 0;) {
        const std::size_t size = std::min<std::size_t>(left, 100);
        ASSERT_TRUE(question.add(Type::kProxyState, std::string(size - 2, 'p')));
        left -= size;
    }
    EXPECT_NE(request_of(question), nullptr);
    question.set_password("x");
    EXPECT_EQ(error_of(question), "the attributes do not fit into a packet of 4096 bytes");
}

TEST(RadiusQuestion, SaysWhichFieldIsWrong) {
    Question question = Question::access();
    question.set_password(std::string(129, 'p'));
    EXPECT_EQ(error_of(question), "the password is longer than the 128 bytes of RADIUS");
    const std::string chap = "the CHAP response does not have 16 bytes, or its challenge not 1 to 253";
    question.set_chap({.id = 1, .response = "short", .challenge = "challenge"});
    EXPECT_EQ(error_of(question), chap);
    question.set_chap({.id = 1, .response = std::string(16, 'r'), .challenge = ""});
    EXPECT_EQ(error_of(question), chap);
    question.set_chap({.id = 1, .response = std::string(16, 'r'), .challenge = std::string(254, 'c')});
    EXPECT_EQ(error_of(question), chap);
    const std::string session = "the session identifier does not have 1 to 253 bytes";
    EXPECT_EQ(error_of(Question::accounting({})), session);
    EXPECT_EQ(error_of(Question::accounting({.session_id = std::string(254, 's')})), session);
    EXPECT_EQ(error_of(Question::accounting({.session_id = "s", .classes = {std::string(254, 'c')}})),
              "the attributes do not fit into a packet of 4096 bytes");
}

TEST(RadiusSecret, IsCopiedAndMoved) {
    Secret one("a secret that is longer than a small string");
    Secret copy = one;
    Secret moved = std::move(one);
    EXPECT_EQ(copy.view(), moved.view());
    EXPECT_TRUE(one.empty());
    copy = Secret("short");
    EXPECT_EQ(copy.view(), "short");
    Secret &self = copy;
    copy = std::move(self);
    EXPECT_EQ(copy.view(), "short");
}

TEST(RadiusSecret, IsOverwritten) {
    alignas(Secret) char storage[sizeof(Secret)];
    auto *const secret = new (storage) Secret("small");  // inside the object itself
    EXPECT_NE(std::string_view(storage, sizeof storage).find("mall"), std::string_view::npos);
    secret->~Secret();
    EXPECT_EQ(std::string_view(storage, sizeof storage).find("mall"), std::string_view::npos);
    auto *const source = new (storage) Secret("small");
    const Secret moved = std::move(*source);
    EXPECT_EQ(std::string_view(storage, sizeof storage).find("mall"), std::string_view::npos);
    source->~Secret();
}

}  // namespace
}  // namespace radius
