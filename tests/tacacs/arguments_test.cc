// SPDX-License-Identifier: Apache-2.0
//
// Arguments, and what does not fit into a request.

#include "tacacs/arguments.hpp"

#include <gmock/gmock.h>

#include "tacacs/authorization.hpp"
#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

using testing::HasSubstr;

std::string refusal(const Subject &subject, const std::vector<std::string> &arguments) {
    SecretBytes packet = begin_packet(0);
    const std::string text = append_authorization(subject, arguments, packet);
    Session session(Type::kAuthorization, 0, tacacs_test::protection());
    EXPECT_EQ(text.empty(), packet.size() > kHeadSize && session.seal(packet, false));
    return text;
}

TEST(Argument, IsSplitAtItsFirstSeparator) {
    const std::optional<Argument> mandatory = split("cmd=show*version");
    ASSERT_TRUE(mandatory);
    EXPECT_EQ(mandatory->name, "cmd");
    EXPECT_EQ(mandatory->value, "show*version");
    EXPECT_TRUE(mandatory->is_mandatory);
    const std::optional<Argument> optional = split("idletime*a=b");
    ASSERT_TRUE(optional);
    EXPECT_EQ(optional->name, "idletime");
    EXPECT_EQ(optional->value, "a=b");
    EXPECT_FALSE(optional->is_mandatory);
    EXPECT_TRUE(split("cmd="));
}

TEST(Argument, WithoutNameOrSeparatorIsNone) {
    for (const char *text : {"", "show", "=show", "*show"}) {
        EXPECT_FALSE(split(text)) << text;
        EXPECT_THAT(refusal({}, {"service=shell", text}), HasSubstr("argument 2 is not of the form")) << text;
    }
}

// A server that decides about the beginning of a command allows its end as well.
TEST(Argument, IsNeverCut) {
    EXPECT_EQ(refusal({}, {"cmd-arg=" + std::string(247, 'x')}), "");
    EXPECT_EQ(refusal({}, {"cmd-arg=" + std::string(248, 'x')}),
              "argument 1 has 256 bytes; TACACS+ carries at most 255");
    EXPECT_THAT(refusal({}, {std::string("cmd-arg=a\0b", 11)}), HasSubstr("argument 1 contains a NUL byte"));
}

TEST(Argument, AreAtMost255) {
    std::vector<std::string> arguments(255, "a=b");
    EXPECT_EQ(refusal({}, arguments), "");
    arguments.emplace_back("a=b");
    EXPECT_EQ(refusal({}, arguments), "there are 256 arguments; TACACS+ carries at most 255");
}

TEST(Argument, OfARequestAboveTheLimitOfABodyAreRefused) {
    const std::string longest(255, 'x');
    const std::vector<std::string> arguments(255, "a=" + std::string(253, 'x'));
    const Subject subject = {.user = longest, .port = longest, .remote_address = longest};
    EXPECT_THAT(refusal(subject, arguments), HasSubstr("at most 65535 are sent"));
}

TEST(Subject, WithAFieldThatIsTooLongIsRefused) {
    const std::string longer(256, 'x');
    EXPECT_THAT(refusal({.user = longer}, {}), HasSubstr("the user name has 256 bytes"));
    EXPECT_THAT(refusal({.port = longer}, {}), HasSubstr("the port has 256 bytes"));
    EXPECT_THAT(refusal({.remote_address = longer}, {}), HasSubstr("the remote address has 256 bytes"));
}

// A server in C would take the user "root\0x" for root.
TEST(Subject, WithANulByteIsRefused) {
    const std::string_view root("root\0x", 6);
    EXPECT_EQ(refusal({.user = root}, {}), "the user name contains a NUL byte");
    EXPECT_EQ(refusal({.port = root}, {}), "the port contains a NUL byte");
    EXPECT_EQ(refusal({.remote_address = root}, {}), "the remote address contains a NUL byte");
}

}  // namespace
}  // namespace tacacs
