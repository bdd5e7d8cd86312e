// SPDX-License-Identifier: Apache-2.0

#include "radius/answer.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/bytes.hpp"

namespace radius {
namespace {

using radius_test::attribute;

constexpr char kSecret[] = "testing123";

Answer answer_of(Code code, std::string_view attributes) {
    Request request(Code::kAccessRequest, 7);
    const std::string bytes =
        radius_test::answer(static_cast<int>(code), request.finish(kSecret), attributes, kSecret);
    Reply reply;
    EXPECT_EQ(Reply::read(bytes, request, kSecret, MessageAuthenticator::kOptional, reply), Fault::kNone);
    return Answer(reply);  // the bytes of the reply go
}

std::string number(std::uint8_t low) {
    return {0, 0, 0, static_cast<char>(low)};
}

TEST(RadiusAnswer, HasItsOwnCopy) {
    const Answer answer =
        answer_of(Code::kAccessAccept,
                  attribute(Type::kReplyMessage, "Hello, ") + attribute(Type::kServiceType, number(6)) +
                      attribute(Type::kClass, "a") + attribute(Type::kSessionTimeout, number(60)) +
                      attribute(Type::kIdleTimeout, number(5)) + attribute(Type::kReplyMessage, "you") +
                      attribute(Type::kClass, std::string("\0b", 2)));
    EXPECT_EQ(answer.code(), Code::kAccessAccept);
    EXPECT_EQ(answer.text(), "Hello, you");
    EXPECT_EQ(answer.service_type(), 6U);
    EXPECT_EQ(answer.session_timeout(), 60U);
    EXPECT_EQ(answer.idle_timeout(), 5U);
    EXPECT_EQ(answer.classes(), (std::vector<std::string>{"a", std::string("\0b", 2)}));
    EXPECT_FALSE(answer.may_echo());
}

TEST(RadiusAnswer, HasNoNumberOfAnotherSize) {
    const Answer answer = answer_of(Code::kAccessAccept, attribute(Type::kSessionTimeout, "60"));
    EXPECT_EQ(answer.session_timeout(), std::nullopt);
    EXPECT_EQ(answer.idle_timeout(), std::nullopt);
    EXPECT_TRUE(answer.classes().empty());
}

TEST(RadiusAnswer, SaysWhetherAPromptMayEcho) {
    EXPECT_TRUE(answer_of(Code::kAccessChallenge, attribute(Type::kPrompt, number(1))).may_echo());
    EXPECT_FALSE(answer_of(Code::kAccessChallenge, attribute(Type::kPrompt, number(0))).may_echo());
    EXPECT_FALSE(answer_of(Code::kAccessChallenge, "").may_echo());
}

TEST(RadiusAnswer, KeepsOnlyTheTextOfAReject) {
    const Answer answer = answer_of(
        Code::kAccessReject, attribute(Type::kServiceType, number(6)) + attribute(Type::kReplyMessage, "No") +
                                 attribute(Type::kState, "s") + attribute(Type::kReplyMessage, "!"));
    EXPECT_EQ(answer.text(), "No!");
    EXPECT_EQ(answer.attributes().bytes(),
              attribute(Type::kReplyMessage, "No") + attribute(Type::kReplyMessage, "!"));
}

}  // namespace
}  // namespace radius
