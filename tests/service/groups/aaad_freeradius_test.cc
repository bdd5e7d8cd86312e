// SPDX-License-Identifier: Apache-2.0
//
// Logins and records through aaad at Debian's FreeRADIUS, which is another implementation.

#include <gtest/gtest.h>
#include <poll.h>

#include "radius/freeradius.hpp"
#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

using radius_test::FreeRadius;

class AaadWithFreeRadius : public GroupTest {
  protected:
    void SetUp() override {
        if (!FreeRadius::is_installed()) {
            GTEST_SKIP() << FreeRadius::kMissing;
        }
        server_ = std::make_unique<FreeRadius>();
        ASSERT_TRUE(server_->usable()) << server_->log();
        entry_ = "127.0.0.1," + std::to_string(server_->authentication().address.port()) + "," +
                 std::to_string(server_->accounting().address.port());
        add_server("radius", entry_, "testing123");
        lists({"corp", AAA_METHOD_LOCAL});
        aaad_.users("alice:" + aaad_test::hash_of("from the file") + ":1\n");
    }

    std::unique_ptr<FreeRadius> server_;
    std::string entry_;
};

TEST_F(AaadWithFreeRadius, LogsInAuthorizesAndRecords) {
    aaad_.start();
    Client client = aaad_.client();
    Ask ask;
    const Reply reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.text, "Hello, Alice");
    EXPECT_EQ(reply.privilege, 15u);
    EXPECT_EQ(client.authorize(ask).privilege, 15u);
    EXPECT_EQ(client.account(ask).result, AAA_OK);
    ask.record = AAA_ACCT_STOP_OPT;
    EXPECT_EQ(client.account(ask).result, AAA_OK);
    // Answered before the server has it.
    while (server_->detail().find("Acct-Status-Type = Stop") == std::string::npos) {
        poll(nullptr, 0, 20);
    }
    const std::string detail = server_->detail();
    for (const char *line :
         {"Acct-Status-Type = Start", "Acct-Status-Type = Stop", "User-Name = \"alice\"",
          "Acct-Session-Id = \"00001267\"", "Class = 0x6f6e65", "Class = 0x74776f", "NAS-Port-Id = \"vty0\"",
          "Calling-Station-Id = \"192.0.2.10\"", "Acct-Session-Time = "}) {
        EXPECT_NE(detail.find(line), std::string::npos) << line << " is not in\n" << detail;
    }
}

TEST_F(AaadWithFreeRadius, ARefusalIsFinal) {
    aaad_.start();
    Reply reply = aaad_.login(ask_as("alice", "from the file"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL}) << "the local user has this password";
    EXPECT_EQ(reply.privilege, std::nullopt);
    reply = aaad_.login(ask_as("bob", "any"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(reply.text, "Account locked");
}

TEST_F(AaadWithFreeRadius, AnswersAChallenge) {
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = ask_as("carol", "any");
    const Reply reply = client.authenticate(ask);
    EXPECT_EQ(reply.prompt, "Code: ");
    ask.state = reply.state;
    ask.password = "123456";
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadWithFreeRadius, AServerThatHasEndedIsFollowedByLocalUsers) {
    aaad_.start();
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    server_->stop();
    const Reply reply = aaad_.login(ask_as("alice", "from the file"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.method, uint32_t{AAA_METHOD_LOCAL});
}

TEST_F(AaadWithFreeRadius, AStoppedServerIsFollowedByLocalUsers) {
    set_number("radius", entry_, "timeout", 100);
    aaad_.start();
    server_->pause();
    const Reply reply = aaad_.login(ask_as("alice", "from the file"));
    EXPECT_EQ(reply.method, uint32_t{AAA_METHOD_LOCAL});
    server_->resume();
}

}  // namespace
}  // namespace groups_test
