// SPDX-License-Identifier: Apache-2.0
//
// Clients that misbehave, and clients without rights: every message gets one answer, no
// message stops the service, and no client keeps another from being answered.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <thread>

#include "service/aaad.hpp"
#include "support/machine.hpp"

namespace {

using namespace aaad_test;
using Bytes = std::vector<unsigned char>;

class AaadClients : public testing::Test {
  protected:
    void SetUp() override {
        aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
        aaad_.list("authorization/exec/default", {AAA_METHOD_LOCAL});
        aaad_.list("accounting/exec/default", {AAA_METHOD_NONE}, {0, 0, 0});
    }

    // The bytes of a well-formed authentication, as they are on the socket.
    static Bytes well_formed(uint32_t session) {
        const TempDir dir;
        const Transport listener = transport_test::listen_at(dir.path("socket"));
        Ask ask;
        ask.session = session;
        ask.deadline = AAA_TRANSPORT_NOW;
        Client sender(dir.path("socket"));
        const Transport receiver = transport_test::accept_from(listener);
        EXPECT_EQ(sender.authenticate(ask).result, AAA_ERR_TIMEOUT);
        const auto sent = std::make_unique<aaa_transport_msg_t>();
        EXPECT_EQ(aaa_transport_receive(receiver.get(), sent.get(), AAA_TRANSPORT_NEVER), AAA_OK);
        return {sent->u.bytes, sent->u.bytes + sent->len};
    }

    // Sends bytes on a connection of their own; the size of the answer.
    size_t answer_to(const Bytes &bytes) {
        const Transport client = transport_test::connect_to(aaad_.socket());
        const int fd = transport_test::descriptor(client);
        EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        const auto answer = std::make_unique<aaa_transport_msg_t>();
        EXPECT_EQ(aaa_transport_receive(client.get(), answer.get(), AAA_TRANSPORT_NEVER), AAA_OK);
        const size_t size = answer->len;
        // There is no second answer: the one to the ping is next.
        Reply pong;
        EXPECT_EQ(recv(fd, answer->u.bytes, sizeof answer->u.bytes, MSG_DONTWAIT), -1);
        return size;
    }

    // Runs `body` as a user without rights. False when the test does not run as root.
    static bool as_user(uid_t uid, const std::function<void()> &body) {
        if (geteuid() != 0) {
            return false;
        }
        run_forked([&] {
            ASSERT_EQ(setgid(uid), 0);
            ASSERT_EQ(setuid(uid), 0);
            body();
        });
        return true;
    }

    // Lets every user reach the socket.
    void open_directory() { EXPECT_EQ(chmod(aaad_.dir().path(".").c_str(), 0755), 0); }

    Aaad aaad_;
};

TEST_F(AaadClients, EveryTruncationAndEveryFlippedWordGetsOneAnswer) {
    aaad_.settings("lockout-failures 0\n");
    aaad_.start();
    for (const uint32_t session : {0u, 1u}) {
        const Bytes whole = well_formed(session);
        for (size_t length = 1; length < whole.size(); length += 7) {
            Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
            EXPECT_GT(answer_to(cut), 0u) << length;
            if (session == 0 && length >= 8) {
                const auto said = static_cast<uint32_t>(length);
                std::memcpy(cut.data() + 4, &said, sizeof said);
                EXPECT_GT(answer_to(cut), 0u) << length;
            }
        }
        for (size_t at = 0; at + 4 <= whole.size(); at += 4) {
            for (const int with : {0x00, 0x7f, 0xff}) {
                Bytes lie = whole;
                std::memset(lie.data() + at, with, 4);
                EXPECT_GT(answer_to(lie), 0u) << at;
            }
        }
    }
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadClients, RandomBytesOfEveryTypeGetOneAnswer) {
    aaad_.start();
    std::mt19937 random(20240229);
    for (int round = 0; round < 300; ++round) {
        Bytes message(1 + random() % 600);
        for (unsigned char &byte : message) {
            byte = static_cast<unsigned char>(random());
        }
        if (round % 2 == 0 && message.size() >= 40) {
            const uint32_t fields[2] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(message.size())};
            const auto type = static_cast<uint32_t>(random() % 40);
            std::memcpy(message.data(), fields, sizeof fields);
            std::memcpy(message.data() + offsetof(aaa_req_hdr_t, type), &type, sizeof type);
        }
        EXPECT_GT(answer_to(message), 0u) << round;
    }
    EXPECT_GT(answer_to(Bytes(AAA_TRANSPORT_MAX + 4096, 'x')), 0u) << "longer than a message may be";
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadClients, PingsAreAnsweredInBothForms) {
    aaad_.start();
    EXPECT_EQ(aaad_.client().ping(0).result, AAA_OK);
    EXPECT_EQ(aaad_.client().ping(1).result, AAA_OK);
}

TEST_F(AaadClients, SeveralRequestsOfAClientAreAnsweredInTheirOrder) {
    aaad_.start();
    Client client = aaad_.client();
    Ask right, wrong;
    wrong.password = "rabbit";
    for (int i = 0; i < 10; ++i) {
        client.send_authentication(i % 3 == 0 ? right : wrong);
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(client.receive(AAA_REQ_AUTHEN).status, uint32_t{i % 3 == 0 ? AAA_STAT_PASS : AAA_STAT_FAIL})
            << i;
    }
}

TEST_F(AaadClients, ClientsThatLeaveAreForgotten) {
    aaad_.settings("clients 40\n");
    aaad_.start();
    for (int i = 0; i < 200; ++i) {
        Client client = aaad_.client();
        if (i % 2 == 0) {  // it is turned away while the service has not noticed that others left
            const cerrno rc = client.try_to_send_authentication({});
            EXPECT_TRUE(rc == AAA_OK || rc == AAA_ERR_NOT_CONNECTED) << rc;
        }
    }
    // Their places are free when the service has noticed that they left.
    aaad_.wait_for_login({}, [](const Reply &reply) { return reply.status == AAA_STAT_PASS; });
}

TEST_F(AaadClients, ANameWithControlCharactersIsRefused) {
    aaad_.start();
    Ask ask;
    ask.user = "alice\n%AAA-SERVICE-6-ANSWER : [1] authentication of root: PASS";
    EXPECT_EQ(aaad_.login(ask).result, AAA_ERR_INVALID_CLIENT_DATA);
    ask.user = "alice";
    ask.list = "../../secret";
    EXPECT_EQ(aaad_.login(ask).result, AAA_ERR_INVALID_CLIENT_DATA);
    EXPECT_EQ(aaad_.log().find("PASS"), std::string::npos);
}

TEST_F(AaadClients, AUserMayAskOnlyForHimself) {
    SKIP_WITHOUT_ROOT("only root can become another user");
    open_directory();
    aaad_.users("nobody:" + hash_of("wonderland") + ":7\nalice:" + hash_of("wonderland") + ":15\n");
    aaad_.list("authorization/exec/trusting", {AAA_METHOD_IF_AUTHEN});
    aaad_.start();
    const std::string socket = aaad_.socket();
    ASSERT_TRUE(as_user(65534, [&] {
        Client client(socket);
        Ask ask;
        ask.user = "nobody";
        EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
        const Reply exec = client.authorize(ask);
        EXPECT_EQ(exec.status, uint32_t{AAA_STAT_PASS});
        EXPECT_EQ(exec.privilege, 7u);
        Ask none = ask;
        none.user = "";
        EXPECT_EQ(client.authenticate(none).status, uint32_t{AAA_STAT_PASS}) << "his own name is meant";
        Ask alice;
        EXPECT_EQ(client.authenticate(alice).result, AAA_ERR_AUTHOR_FAILED);
        EXPECT_EQ(client.authorize(alice).result, AAA_ERR_AUTHOR_FAILED);
        EXPECT_EQ(client.account(ask).result, AAA_ERR_AUTHOR_FAILED);
        // What he says of himself is not believed.
        Client fresh(socket);
        ask.list = "trusting";
        EXPECT_EQ(fresh.authorize(ask).status, uint32_t{AAA_STAT_FAIL});
    }));
    EXPECT_TRUE(aaad_.wait_for_log("may not ask for authentication for another user than himself"));
    EXPECT_TRUE(aaad_.wait_for_log("\"allow\" in aaad.conf says who may"));
}

// A user who gives the number of another login does not get its id.
TEST_F(AaadClients, AnIdShowsTheUserOfItsClient) {
    SKIP_WITHOUT_ROOT("only root can become another user");
    open_directory();
    aaad_.users("nobody:" + hash_of("wonderland") + ":7\nalice:" + hash_of("wonderland") + ":15\n");
    aaad_.start();
    const auto log_in = [socket = aaad_.socket()](const std::string &user) {
        Client client(socket);
        EXPECT_EQ(aaa_transport_set_login(client.get(), 0x4f1c00a7), AAA_OK);
        EXPECT_EQ(
            aaa_transport_connect(client.get(), socket.c_str(), AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NEVER),
            AAA_OK);
        Ask ask;
        ask.user = user;
        EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
    };
    log_in("alice");
    EXPECT_TRUE(aaad_.wait_for_log("[4f1c00a7] authentication of alice"));
    ASSERT_TRUE(as_user(65534, [&] { log_in("nobody"); }));
    EXPECT_TRUE(aaad_.wait_for_log("[fffe4f1c00a7] authentication of nobody"));
}

TEST_F(AaadClients, TheRulesOfTheFileDecideWhoMayAskWhat) {
    open_directory();
    aaad_.settings("allow authentication user:nobody\nallow accounting group:65534\n");
    const auto [status, output] = aaad_.run({"--check"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find("aaad.conf:4: there is no group \"65534\""), std::string::npos) << output;
    aaad_.settings("allow authentication user:nobody\n");
    aaad_.start();
    EXPECT_EQ(aaad_.login().result, geteuid() == 0 ? AAA_ERR_AUTHOR_FAILED : AAA_OK) << "root is not named";
    const std::string socket = aaad_.socket();
    as_user(65534, [&] { EXPECT_EQ(Client(socket).authenticate({}).status, uint32_t{AAA_STAT_PASS}); });
}

TEST_F(AaadClients, AUserCannotTakeAllPlaces) {
    open_directory();
    aaad_.settings("clients 16\nclients-per-user 4\n");
    aaad_.users("nobody:" + hash_of("wonderland") + ":1\nalice:" + hash_of("wonderland") + ":15\n");
    aaad_.start();
    const std::string socket = aaad_.socket();
    Pipe opened, end;
    SKIP_WITHOUT_ROOT("only root can become another user");
    ForkedProcess greedy([&] {
        ASSERT_EQ(setgid(65534), 0);
        ASSERT_EQ(setuid(65534), 0);
        std::vector<Client> clients;
        int served = 0;
        for (int i = 0; i < 20; ++i) {
            clients.emplace_back(socket);
            served += clients.back().ping().result == AAA_OK ? 1 : 0;
        }
        EXPECT_EQ(served, 4);
        opened.put();
        end.take(60000);
    });
    ASSERT_TRUE(opened.take(60000));
    std::vector<Client> roots;
    for (int i = 0; i < 12; ++i) {
        roots.push_back(aaad_.client());
        EXPECT_EQ(roots.back().ping().result, AAA_OK) << i;
    }
    EXPECT_TRUE(aaad_.wait_for_log("is turned away"));
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS})
        << "a client of root that asks nothing makes room";
    EXPECT_TRUE(aaad_.wait_for_log("makes room"));
    EXPECT_EQ(roots[0].ping().result, AAA_ERR_NOT_CONNECTED);
    for (size_t i = 1; i < roots.size(); ++i) {
        EXPECT_EQ(roots[i].ping().result, AAA_OK) << "the one that was quiet for longest has gone: " << i;
    }
    end.put();
    EXPECT_EQ(greedy.wait(), 0);
}

// As those of su that wait at their prompts: every user can start them, and they are root's.
TEST_F(AaadClients, ClientsOfRootThatAskNothingMakeRoomForLogins) {
    SKIP_WITHOUT_ROOT("the clients have to be root's");
    aaad_.settings("clients 8\n");
    aaad_.start();
    Client login = aaad_.client();
    Ask ask;
    ask.password = std::nullopt;
    const Reply question = login.authenticate(ask);
    EXPECT_EQ(question.status, uint32_t{AAA_STAT_GETPASS});
    std::vector<Client> prompts;
    for (int i = 0; i < 30; ++i) {
        prompts.push_back(aaad_.client());
        EXPECT_EQ(prompts.back().ping().result, AAA_OK) << i;
    }
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    // A login whose user is being asked stays while there are others.
    ask.password = "wonderland";
    ask.state = question.state;
    EXPECT_EQ(login.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadClients, ClientsThatWaitForTheirAnswersDoNotMakeRoom) {
    SKIP_WITHOUT_ROOT("the clients have to be root's");
    aaad_.users("alice:" + slow_hash(1000000) + ":15\n");
    aaad_.settings("clients 4\nhash-threads 1\npatience 600000\nlongest-request 600000\n");
    aaad_.start();
    std::vector<Client> logins;
    for (int i = 0; i < 4; ++i) {
        logins.push_back(aaad_.client());
        logins.back().send_authentication({});
    }
    Client more = aaad_.client();
    EXPECT_EQ(more.ping().result, AAA_ERR_NOT_CONNECTED) << "all places are taken";
    EXPECT_TRUE(aaad_.wait_for_log("is turned away"));
    for (Client &login : logins) {
        EXPECT_EQ(login.receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_FAIL});
    }
}

TEST_F(AaadClients, IdleClientsAreDropped) {
    aaad_.settings("idle-time 1\n");
    aaad_.start();
    Client client = aaad_.client();
    EXPECT_EQ(client.ping().result, AAA_OK);
    EXPECT_EQ(client.receive(AAA_REQ_PING).result, AAA_ERR_NOT_CONNECTED)
        << "the service closes the connection";
}

// Hashing takes as long as it is told to; requests that need none do not wait for it.
TEST_F(AaadClients, LoginsUnderWayDoNotStopOtherRequests) {
    aaad_.users("alice:" + slow_hash(300000) + ":15\n");
    aaad_.settings("hash-threads 1\npatience 600000\nlongest-request 600000\n");
    aaad_.start();
    std::vector<Client> logins;
    for (int i = 0; i < 8; ++i) {
        logins.push_back(aaad_.client());
        logins.back().send_authentication({});
    }
    Client other = aaad_.client();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(other.authorize({}).status, uint32_t{AAA_STAT_PASS});
    }
    // The last of the logins is still under way: it has no answer yet.
    char byte;
    EXPECT_EQ(recv(aaa_transport_descriptor(logins.back().get()), &byte, 1, MSG_PEEK | MSG_DONTWAIT), -1);
    for (Client &login : logins) {
        EXPECT_EQ(login.receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_FAIL});
    }
}

TEST_F(AaadClients, ALoginThatTakesTooLongIsAnErrorAndNotTheNextMethod) {
    aaad_.users("alice:" + slow_hash(5000000) + ":15\n");
    aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL, AAA_METHOD_NONE});
    aaad_.settings("patience 100\n");
    aaad_.start();
    Client client = aaad_.client();
    client.send_authentication({});  // does not say how long it waits
    EXPECT_EQ(client.receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_ABORT});
    EXPECT_TRUE(aaad_.wait_for_log("no answer within its part of the client's time"));
}

}  // namespace
