// SPDX-License-Identifier: Apache-2.0
//
// Logins through aaad at RADIUS servers that do what the test says.

#include <gtest/gtest.h>

#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

using radius::Code;
using radius::Type;
using radius_test::Packet;
using radius_test::UdpServer;

class AaadRadius : public GroupTest {
  protected:
    UdpServer first_{loop_}, second_{loop_};
};

TEST_F(AaadRadius, AnAcceptLogsInWithTheRightsThatItGives) {
    add_radius(first_);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    Login login(aaad_, ask_as("ann", "secret"));
    const Packet request = first_.next();
    EXPECT_EQ(request.code(), 1);
    EXPECT_EQ(request.text(Type::kUserName), "ann");
    EXPECT_EQ(request.text(Type::kNasPortId), "vty0");
    EXPECT_EQ(request.text(Type::kCallingStationId), "192.0.2.10");
    EXPECT_EQ(request.number(Type::kNasPortType), 5u);
    EXPECT_EQ(request.number(Type::kServiceType), 1u);
    EXPECT_FALSE(request.text(Type::kNasIdentifier).empty());
    EXPECT_EQ(request.bytes.find("secret"), std::string::npos);
    first_.answer(request, Code::kAccessAccept,
                  attribute(18, "Hello, ") + attribute(18, "Ann\x1b[2J") + number_attribute(6, 6));
    const Reply reply = login.wait();
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.text, "Hello, Ann?[2J") << "no control character reaches the terminal";
    EXPECT_EQ(reply.privilege, 15u);
}

TEST_F(AaadRadius, ARejectIsFinalAndGivesNoRights) {
    add_radius(first_);
    add_radius(second_);
    lists({"corp", AAA_METHOD_LOCAL, AAA_METHOD_NONE});
    aaad_.start();
    Login login(aaad_, ask_as("alice", "wonderland"));  // whom the local users have
    first_.answer(first_.next(), Code::kAccessReject,
                  attribute(18, "Account locked") + number_attribute(6, 6));
    const Reply reply = login.wait();
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(reply.text, "Account locked");
    EXPECT_EQ(reply.privilege, std::nullopt);
    EXPECT_EQ(reply.method, std::nullopt);
    EXPECT_FALSE(second_.has_one()) << "no other server is asked";
}

TEST_F(AaadRadius, ChallengesAreAnsweredAtTheServerThatAsked) {
    add_radius(first_);
    add_radius(second_);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = ask_as("ann", "secret");
    {
        Login login(client, ask);
        first_.answer(first_.next(), Code::kAccessChallenge,
                      attribute(18, "Code: ") + attribute(24, "one") + attribute(24, "more"));
        const Reply reply = login.wait();
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
        EXPECT_EQ(reply.prompt, "Code: ");
        EXPECT_EQ(reply.echo, 0u) << "without Prompt what is typed is not shown";
        EXPECT_NE(reply.state, "one") << "the server's state stays in the service";
        ask.state = reply.state;
        ask.password = "1234";
    }
    {
        Login login(client, ask);
        const Packet second = first_.next();
        EXPECT_EQ(second.text(Type::kState), "onemore");
        EXPECT_EQ(second.text(Type::kUserName), "ann");
        first_.answer(second, Code::kAccessChallenge,
                      attribute(18, "Again: ") + attribute(24, "two") + number_attribute(76, 1));
        const Reply reply = login.wait();
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETDATA});
        EXPECT_EQ(reply.echo, 1u);
        ask.state = reply.state;
        ask.password = "5678";
    }
    Login login(client, ask);
    const Packet third = first_.next();
    EXPECT_EQ(third.text(Type::kState), "two");
    first_.answer(third, Code::kAccessAccept, number_attribute(6, 6));
    const Reply reply = login.wait();
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, 15u);
    EXPECT_FALSE(second_.has_one());
}

// A code that is good once must not become the password of the next method.
TEST_F(AaadRadius, ALoginWhoseServerDiesBetweenRoundsBeginsAgain) {
    add_radius(first_, 50);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = ask_as("alice", "secret");
    {
        Login login(client, ask);
        first_.answer(first_.next(), Code::kAccessChallenge, attribute(18, "Code: ") + attribute(24, "one"));
        ask.state = login.wait().state;
        ask.password = "1234";
    }
    first_.close();
    Reply reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
    EXPECT_EQ(reply.prompt, "The server that asked does not answer any more.\nPassword: ");
    ask.state = reply.state;
    ask.password = "wonderland";
    reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.method, uint32_t{AAA_METHOD_LOCAL});
}

TEST_F(AaadRadius, ASilentServerIsAskedOnce) {
    add_radius(first_, 50, 2);
    add_radius(second_);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start({"--debug"});
    for (int i = 0; i < 3; ++i) {
        Login login(aaad_, ask_as("ann", "secret"));
        second_.answer(second_.next());
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
        const uint32_t tries = requests_at(first_);
        EXPECT_LE(tries, i == 0 ? 2u : 0u) << "tries of the first login only";
        EXPECT_TRUE(tries > 0 || i > 0);
    }
    EXPECT_TRUE(aaad_.wait_for_log("the server radius/" + entry_of(first_) + " does not answer"));
    EXPECT_TRUE(aaad_.wait_for_log("the next is radius/" + entry_of(second_)));
}

TEST_F(AaadRadius, SilentServersAreFollowedByTheNextMethodAtOnceTheSecondTime) {
    add_radius(first_, 50);
    add_radius(second_, 50);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    for (int i = 0; i < 3; ++i) {
        const Reply reply = aaad_.login();
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
        EXPECT_EQ(reply.method, uint32_t{AAA_METHOD_LOCAL});
    }
    for (UdpServer *server : {&first_, &second_}) {
        server->next();
        EXPECT_FALSE(server->has_one());
    }
}

// Without another method it is better to ask a silent server than no one.
TEST_F(AaadRadius, TheLastMethodAsksSilentServersToo) {
    add_radius(first_, 50);
    lists({"corp"});
    aaad_.start();
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_ERROR});
    first_.next();
    set_number("radius", entry_of(first_), "tries", 10);  // a new client, which knows of no silence
    aaad_.reload();
    Login login(aaad_, Ask());
    first_.answer(first_.next());
    EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadRadius, AClosedPortIsNotWaitedFor) {
    add_radius(first_);  // with a time-out of a minute
    add_radius(second_);
    lists({"corp"});
    first_.close();
    aaad_.start();
    Login login(aaad_, ask_as("ann", "secret"));
    second_.answer(second_.next());
    EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadRadius, AWrongKeyIsSilenceWithAReason) {
    add_server("radius", entry_of(first_), "another", 50, 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    Login login(aaad_, Ask());
    first_.answer(first_.next());
    EXPECT_EQ(login.wait().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_TRUE(aaad_.wait_for_log("compare the shared secret with the server's"));
}

TEST_F(AaadRadius, AnswersWithoutMessageAuthenticatorNeedTheSettingLegacy) {
    add_radius(first_, 500);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    const auto answer = [this] {
        const Packet request = first_.next();
        first_.send(request, radius_test::answer(2, request.bytes, "", radius_test::kSecret));
    };
    {
        Login login(aaad_, Ask());
        answer();
        EXPECT_EQ(login.wait().method, uint32_t{AAA_METHOD_LOCAL});
        EXPECT_TRUE(aaad_.wait_for_log("without Message-Authenticator"));
    }
    set_number("radius", "", "legacy", 1);
    aaad_.reload();
    Login login(aaad_, ask_as("ann", "secret"));
    answer();
    EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    EXPECT_TRUE(aaad_.wait_for_log("can forge them"));
}

TEST_F(AaadRadius, ARequestEndsWithTheServersThatItBeganWith) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    Login before(aaad_, ask_as("ann", "secret"));
    const Packet request = first_.next();
    aaad_.remove("group-server/radius/corp/server/0/" + entry_of(first_));
    add_radius(second_);
    aaad_.reload();
    Login after(aaad_, ask_as("ben", "secret"));
    second_.answer(second_.next());
    EXPECT_EQ(after.wait().status, uint32_t{AAA_STAT_PASS});
    first_.answer(request);
    EXPECT_EQ(before.wait().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadRadius, AUserWhoLeavesIsNotAnsweredAndTheServerIsNotMarked) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    {
        Client client = aaad_.client();
        client.send_authentication(ask_as("ann", "secret"));
        first_.next();
    }
    Login login(aaad_, ask_as("ben", "secret"));
    first_.answer(first_.next());
    EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadRadius, EachOfManyLoginsIsAnsweredOnce) {
    constexpr int kLogins = 200;
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < kLogins; ++i) {
        clients.push_back(std::make_unique<Client>(aaad_.socket()));
        Ask ask = ask_as("user" + std::to_string(i), "secret");
        ask.remote = "192.0.2." + std::to_string(i);  // failures from one place would lock it out
        clients.back()->send_authentication(ask);
    }
    for (int i = 0; i < kLogins; ++i) {
        const Packet request = first_.next();
        const bool is_even = (request.text(Type::kUserName).back() - '0') % 2 == 0;
        first_.answer(request, is_even ? Code::kAccessAccept : Code::kAccessReject);
    }
    for (int i = 0; i < kLogins; ++i) {
        EXPECT_EQ(clients[static_cast<size_t>(i)]->receive(AAA_REQ_AUTHEN).status,
                  i % 2 == 0 ? uint32_t{AAA_STAT_PASS} : uint32_t{AAA_STAT_FAIL})
            << i;
    }
    EXPECT_FALSE(first_.has_one());
}

TEST_F(AaadRadius, ALongPasswordIsRefusedAndNotCut) {
    add_radius(first_);
    lists({"corp", AAA_METHOD_NONE});
    aaad_.start();
    EXPECT_EQ(aaad_.login(ask_as("ann", std::string(129, 'x'))).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_TRUE(aaad_.wait_for_log("the password is longer than the 128 bytes of RADIUS"));
    EXPECT_FALSE(first_.has_one());
}

// Without the probe the server would be asked again only after an hour.
TEST_F(AaadRadius, AServerThatAnswersStatusServerIsAskedAgain) {
    add_radius(first_, 50);
    set_number("radius", entry_of(first_), "dead-time", 1);
    set_number("radius", "", "status-server", 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_EQ(first_.next().code(), 1);
    EXPECT_EQ(first_.next().code(), 12) << "at once, and it is not answered";
    const Packet probe = first_.next();
    EXPECT_EQ(probe.code(), 12);
    first_.answer(probe);
    EXPECT_TRUE(aaad_.wait_for_log("answers again"));
    Login login(aaad_, ask_as("ann", "secret"));
    Packet request = first_.next();
    while (request.code() == 12) {
        first_.answer(request);
        request = first_.next();
    }
    first_.answer(request);
    EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
}

// Servers drop some requests, such as those for a realm whose own server is down: with such a name
// anyone could have the server passed over for all others.
TEST_F(AaadRadius, AServerThatIsSilentToOneUserOnlyIsNotPassedOver) {
    add_radius(first_, 1000);
    set_number("radius", entry_of(first_), "dead-time", 3600);
    set_number("radius", "", "status-server", 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_EQ(first_.next().code(), 1);
    const Packet probe = first_.next();
    EXPECT_EQ(probe.code(), 12);
    first_.answer(probe);
    EXPECT_TRUE(aaad_.wait_for_log("answers again"));
    Login login(aaad_, ask_as("ann", "secret"));
    Packet request = first_.next();
    while (request.code() == 12) {
        first_.answer(request);
        request = first_.next();
    }
    first_.answer(request);
    EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
}

// The same for servers without Status-Server.
class AaadProbe : public AaadRadius {
  protected:
    void start(uint32_t timeout) {
        add_radius(first_, timeout);
        set_text("radius", entry_of(first_), "probe-user", "prober");
        lists({"corp", AAA_METHOD_LOCAL});
        aaad_.start();
    }
    Packet next_of(const std::string &user) {
        const Packet request = first_.next();
        EXPECT_EQ(request.code(), 1);
        EXPECT_EQ(request.text(Type::kUserName), user);
        return request;
    }
    void expect_server_is_asked() {
        Login login(aaad_, ask_as("ann", "secret"));
        first_.answer(next_of("ann"));
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
};

TEST_F(AaadProbe, OneThatAnswersTheProbeIsNotMarked) {
    start(3000);
    Login silent(aaad_, Ask());
    next_of("alice");
    const Packet probe = next_of("prober");
    EXPECT_FALSE(probe.text(Type::kUserPassword).empty());
    first_.answer(probe, Code::kAccessReject);
    EXPECT_EQ(silent.wait().method, uint32_t{AAA_METHOD_LOCAL});
    expect_server_is_asked();
    EXPECT_EQ(aaad_.log().find("SERVER_SILENT"), std::string::npos) << "the probe was answered before";
}

TEST_F(AaadProbe, OneThatAnswersTheProbeLateIsAskedFromThenOn) {
    start(1000);
    Packet probe;
    {
        Login silent(aaad_, Ask());
        next_of("alice");
        probe = next_of("prober");
        EXPECT_EQ(silent.wait().method, uint32_t{AAA_METHOD_LOCAL});
    }
    EXPECT_TRUE(aaad_.wait_for_log("SERVER_SILENT"));
    first_.answer(probe, Code::kAccessReject);  // servers delay their refusals
    EXPECT_TRUE(aaad_.wait_for_log("answers again"));
    expect_server_is_asked();
}

TEST_F(AaadProbe, OneThatIsDeadCostsOneLoginItsTime) {
    start(200);
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    next_of("alice");
    next_of("prober");
    EXPECT_TRUE(aaad_.wait_for_log("SERVER_SILENT"));
    for (const char *user : {"bob", "alice"}) {
        aaad_.login(ask_as(user, "secret"));
    }
    while (first_.has_one()) {
        next_of("prober");
    }
}

// Without a probe, too, a server that answers others meanwhile is there.
TEST_F(AaadRadius, AServerThatAnswersOthersMeanwhileIsNotMarked) {
    add_radius(first_, 3000);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    Login silent(aaad_, Ask());
    EXPECT_EQ(first_.next().text(Type::kUserName), "alice");
    for (int i = 0; i < 2; ++i) {
        Login login(aaad_, ask_as("ann", "secret"));
        const Packet request = first_.next();
        EXPECT_EQ(request.text(Type::kUserName), "ann");
        first_.answer(request);
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
        if (i == 0) {
            EXPECT_EQ(silent.wait().method, uint32_t{AAA_METHOD_LOCAL});
        }
    }
    EXPECT_EQ(aaad_.log().find("SERVER_SILENT"), std::string::npos);
}

}  // namespace
}  // namespace groups_test
