// SPDX-License-Identifier: Apache-2.0

#include "groups/logins.hpp"

#include <gtest/gtest.h>

namespace service {
namespace {

using Classes = std::vector<std::string>;

Login login(std::uint64_t number, const std::string &user, const std::string &value,
            const std::string &terminal = "vty0") {
    return {number, user, terminal, "192.0.2.1", 7, {}, {value}};
}

Question request(std::uint64_t login, const std::string &user, std::uint32_t session,
                 const std::string &terminal = "vty0") {
    Question question;
    question.login = login;
    question.user = user;
    question.session = session;
    question.terminal = terminal;
    question.remote = "192.0.2.1";
    return question;
}

TEST(Logins, AreFoundByIdAndUser) {
    Logins logins;
    logins.passed(login(1, "ann", "a"));
    ASSERT_NE(logins.find(1, "ann"), nullptr);
    EXPECT_EQ(logins.find(1, "ann")->privilege, 7u);
    EXPECT_EQ(logins.find(1, "ben"), nullptr);
    EXPECT_EQ(logins.find(2, "ann"), nullptr);
    logins.passed(login(1, "ben", "b"));
    EXPECT_EQ(logins.find(1, "ann"), nullptr) << "the connection has another user now";
}

TEST(Logins, ASessionGetsTheClassOfItsLoginOnce) {
    Logins logins;
    logins.passed(login(1, "ann", "first"));
    logins.passed(login(2, "ann", "second"));
    EXPECT_EQ(logins.open(request(2, "ann", 20), 0, 0).classes, Classes{"second"}) << "by its number";
    EXPECT_EQ(logins.open(request(9, "ann", 10), 0, 0).classes, Classes{"first"}) << "by user and place";
    EXPECT_EQ(logins.open(request(8, "ann", 30), 0, 0).classes, Classes{});
    EXPECT_EQ(logins.open(request(7, "ben", 40), 0, 0).classes, Classes{});
    ASSERT_NE(logins.session(20, "ann"), nullptr);
    EXPECT_EQ(logins.session(20, "ann")->classes, Classes{"second"}) << "for all its records";
    EXPECT_EQ(logins.session(20, "ben"), nullptr) << "another user's records do not get it";
    EXPECT_NE(logins.find(2, "ann"), nullptr) << "the rights stay";
}

TEST(Logins, AnotherPlaceIsAnotherLogin) {
    Logins logins;
    logins.passed(login(1, "ann", "a", "vty1"));
    EXPECT_EQ(logins.open(request(9, "ann", 1, "vty0"), 0, 0).classes, Classes{});
    EXPECT_EQ(logins.open(request(9, "ann", 2, "vty1"), 0, 0).classes, Classes{"a"});
}

TEST(Logins, ARecordForSeveralGroupsOpensItsSessionOnce) {
    Logins logins;
    logins.passed(login(1, "ann", "a"));
    EXPECT_EQ(logins.open(request(1, "ann", 5), 100, 1000).classes, Classes{"a"});
    EXPECT_EQ(logins.open(request(1, "ann", 5), 200, 2000).classes, Classes{"a"});
    EXPECT_EQ(logins.session(5, "ann")->start, 1000);
    logins.end(5, "ann");
    EXPECT_NE(logins.session(5, "ann"), nullptr) << "the next group needs it too";
    EXPECT_EQ(logins.open(request(1, "ann", 5), 300, 3000).classes, Classes{}) << "the number is used again";
    EXPECT_EQ(logins.session(5, "ann")->start, 3000);
    EXPECT_EQ(logins.sessions(), 1u);
}

TEST(Logins, AFullTableGivesUpEndedSessionsFirst) {
    Logins logins(3);
    for (std::uint32_t number = 1; number <= 3; ++number) {
        logins.open(request(1, "ann", number), 0, 0);
    }
    logins.end(2, "ann");
    logins.open(request(1, "ann", 4), 0, 0);
    EXPECT_EQ(logins.session(2, "ann"), nullptr);
    EXPECT_NE(logins.session(1, "ann"), nullptr);
    logins.open(request(1, "ann", 5), 0, 0);
    EXPECT_EQ(logins.session(1, "ann"), nullptr);
    EXPECT_EQ(logins.sessions(), 3u);
    for (std::uint64_t number = 1; number <= 4; ++number) {
        logins.passed(login(number, "ann", "x"));
    }
    EXPECT_EQ(logins.find(1, "ann"), nullptr);
    EXPECT_NE(logins.find(2, "ann"), nullptr);
}

}  // namespace
}  // namespace service
