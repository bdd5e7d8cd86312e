// SPDX-License-Identifier: Apache-2.0
//
// The control socket of the program, and clients of it that misbehave.

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <memory>

#include "service/aaad.hpp"
#include "service/control/control_socket.hpp"
#include "support/machine.hpp"

namespace {

using namespace aaad_test;
using namespace control_test;

class AaadControl : public testing::Test {
  protected:
    AaadControl() { aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL}); }
    std::string path() const { return aaad_.dir().path("control.sock"); }

    Aaad aaad_;
};

TEST_F(AaadControl, SaysHowTheServiceIs) {
    aaad_.start();
    ControlSocket control(path());
    const JsonDocument status = control.ask(R"({"version":1,"request":"status"})");
    EXPECT_EQ(status["version"], 1);
    EXPECT_EQ(status["reply"], "status");
    EXPECT_EQ(status["pid"], aaad_.pid());
    EXPECT_EQ(status["socket"], aaad_.socket());
    EXPECT_EQ(status["control_clients"], 1);
    EXPECT_EQ(status["configuration"]["fallback"], false);
    EXPECT_EQ(status["configuration"]["revision"], 1);
    EXPECT_EQ(status["configuration"]["lists"], 1) << "only what is configured";
    EXPECT_EQ(status["configuration"]["groups"], 0);
    const auto [faults, checked] = aaad_.run({"--check"});
    EXPECT_EQ(faults, 0);
    EXPECT_EQ(checked, "1 method list, 0 server groups, 2 local users\n");
    EXPECT_EQ(control.ask(R"({"request":"accounting"})")["reply"], "accounting");
    EXPECT_EQ(control.ask(R"({"request":"sessions"})")["available"], true);
    EXPECT_EQ(control.ask(R"({"request":"servers"})")["groups"].size(), 0u);
    struct stat file {};
    EXPECT_EQ(lstat(path().c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0660u);
    EXPECT_EQ(aaad_.stop(), 0);
    EXPECT_NE(lstat(path().c_str(), &file), 0) << "it goes with the service";
    EXPECT_EQ(control.line(), "");
}

TEST_F(AaadControl, AnswersWhatIsWrongAndGoesOn) {
    aaad_.start();
    ControlSocket control(path());
    for (const char *line :
         {"nonsense", "", "{}", "{\"request\":\"trace\",\"user\":1}", "\x01\xff{", "{\"request\":[]}"}) {
        const JsonDocument reply = control.ask(line);
        EXPECT_EQ(reply["code"], "bad-request") << line;
        EXPECT_FALSE(reply["error"].text().empty());
    }
    EXPECT_EQ(control.ask(R"({"request":"status"})")["reply"], "status");
    // Several in one packet, and one in several.
    control.send("{\"request\":\"status\"}\r\n{\"request\":\"servers\"}\n{\"requ");
    EXPECT_EQ(control.next()["reply"], "status");
    EXPECT_EQ(control.next()["reply"], "servers");
    control.send("est\":\"status\"}\n");
    EXPECT_EQ(control.next()["reply"], "status");
}

TEST_F(AaadControl, ARequestWithoutEndEndsTheConnection) {
    aaad_.start();
    ControlSocket control(path());
    const std::string much(100000, '{');
    while (control.send(much)) {
    }
    ControlSocket other(path());
    other.send(std::string(4097, ' '));
    EXPECT_EQ(other.next()["code"], "too-long");
    EXPECT_EQ(other.line(), "");
    ControlSocket just(path());
    EXPECT_EQ(just.ask(R"({"request":"status"})" + std::string(4076, ' '))["reply"], "status");
    ControlSocket more(path());
    EXPECT_EQ(more.ask(R"({"request":"status"})" + std::string(4077, ' '))["code"], "too-long");
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadControl, AnswersAClientThatSendsNoMore) {
    aaad_.start();
    ControlSocket control(path());
    control.send("{\"request\":\"status\"}\n{\"request\":\"trace\",\"live\":false}\n");
    control.end_of_requests();
    EXPECT_EQ(control.next()["reply"], "status");
    EXPECT_EQ(control.next()["reply"], "trace");
    EXPECT_EQ(control.next()["event"], "end");
    EXPECT_EQ(control.line(), "");
    ControlSocket silent(path());
    silent.end_of_requests();
    EXPECT_EQ(silent.line(), "") << "it can get nothing";
}

TEST_F(AaadControl, AHundredClientsLeaveRoomForLogins) {
    aaad_.start();
    std::vector<std::unique_ptr<ControlSocket>> clients;
    int answered = 0, turned_away = 0;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::make_unique<ControlSocket>(path()));
        ASSERT_EQ(clients.back()->error(), 0);
        clients.back()->send("{\"request\":\"trace\"}\n");
        const JsonDocument reply = clients.back()->next();
        answered += reply["reply"] == "trace" ? 1 : 0;
        turned_away += reply["code"] == "too-many" ? 1 : 0;
    }
    EXPECT_EQ(answered, 32);
    EXPECT_EQ(turned_away, 68);
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(clients[static_cast<size_t>(i)]->next()["step"], "request") << "all see the login";
    }
    clients.clear();
    // The service notices the end of one client after the other.
    for (;;) {
        ControlSocket control(path());
        if (control.ask(R"({"request":"status"})")["control_clients"] == 1) {
            break;
        }
    }
}

// A reader that stops costs the service a buffer, and is told what it has missed.
TEST_F(AaadControl, AReaderThatStopsMissesStepsAndDelaysNoLogin) {
    aaad_.list("authentication/login/default", {AAA_METHOD_NONE});
    aaad_.start();
    ControlSocket slow(path());
    EXPECT_EQ(slow.ask(R"({"request":"trace"})")["reply"], "trace");
    Client client = aaad_.client();
    constexpr uint64_t kLogins = 1600;
    for (uint64_t i = 0; i < kLogins; ++i) {
        ASSERT_EQ(client.authenticate().status, uint32_t{AAA_STAT_PASS});
    }
    uint64_t seen = 0, lost = 0, last = 0;
    while (last < kLogins * 5) {
        const JsonDocument event = slow.next();
        ASSERT_TRUE(event.valid());
        if (event["event"] == "lost") {
            lost += event["count"].number();
            last += event["count"].number();
        } else {
            ASSERT_EQ(event["number"], ++last) << "no gap that was not told";
            ++seen;
        }
    }
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(seen + lost, kLogins * 5);
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(slow.next()["step"], "request") << "and goes on";
}

TEST_F(AaadControl, OtherUsersMayNotAsk) {
    SKIP_WITHOUT_ROOT("needs root, to be another user");
    aaad_.start();
    ASSERT_EQ(chmod(aaad_.dir().path("").c_str(), 0755), 0);
    const auto as_nobody = [&](int expected_error, const char *expected_code) {
        const pid_t pid = fork();
        if (pid == 0) {
            const bool is_other = setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0;
            ControlSocket control(path());
            const bool is_right = control.error() == expected_error &&
                                  (expected_error != 0 || control.next()["code"] == expected_code);
            _exit(is_other && is_right ? 0 : 1);
        }
        int status = -1;
        waitpid(pid, &status, 0);
        return status;
    };
    EXPECT_EQ(as_nobody(EACCES, ""), 0);
    ASSERT_EQ(chmod(path().c_str(), 0666), 0);  // as by a mistake of the administrator
    EXPECT_EQ(as_nobody(0, "not-allowed"), 0);
    EXPECT_TRUE(aaad_.wait_for_log("he is not in the group aaa"));
}

TEST_F(AaadControl, TheSocketOfADeadServiceIsReplaced) {
    aaad_.start();
    aaad_.signal(SIGKILL);
    aaad_.wait();
    EXPECT_EQ(ControlSocket(path()).error(), ECONNREFUSED);
    aaad_.start();
    EXPECT_EQ(ControlSocket(path()).ask(R"({"request":"status"})")["pid"], aaad_.pid());
}

TEST_F(AaadControl, LoginsAreAnsweredWithoutIt) {
    aaad_.dir().write("control.sock", "an administrator's file");
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("control.sock: it is not a socket; move it away"));
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    aaad_.stop();
    EXPECT_EQ(aaad_.dir().read("control.sock"), "an administrator's file");
    aaad_.settings("control-socket none\n");
    unlink(path().c_str());
    aaad_.start();
    EXPECT_EQ(ControlSocket(path()).error(), ENOENT);
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadControl, ASymbolicLinkIsNotFollowed) {
    const std::string target = aaad_.dir().write("precious", "x");
    ASSERT_EQ(symlink(target.c_str(), path().c_str()), 0);
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("control.sock: it is not a socket"));
    aaad_.stop();
    struct stat file {};
    EXPECT_EQ(lstat(path().c_str(), &file), 0);
    EXPECT_TRUE(S_ISLNK(file.st_mode));
}

TEST_F(AaadControl, ARefusedClientIsInTheTrace) {
    aaad_.settings("allow authentication user:nobody\n");
    aaad_.start();
    aaad_.login();
    const auto events = ControlSocket(path()).kept();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]["step"], "request");
    EXPECT_EQ(events[0]["user"], "alice");
    EXPECT_EQ(events[1]["outcome"], "not allowed");
    EXPECT_EQ(events[1]["detail"], "the client may not ask for authentication");
}

TEST_F(AaadControl, AClientThatLeavesIsInTheTrace) {
    aaad_.users("alice:" + slow_hash(3000000) + ":1\n");
    aaad_.start();
    ControlSocket control(path());
    EXPECT_EQ(control.ask(R"({"request":"trace"})")["reply"], "trace");
    {
        Client client = aaad_.client();
        client.send_authentication({});
        while (control.next()["step"] != "method") {
        }
    }
    const JsonDocument end = control.next();
    EXPECT_EQ(end["step"], "answer");
    EXPECT_EQ(end["outcome"], "cancelled");
    EXPECT_EQ(end["user"], "alice");
}

TEST_F(AaadControl, ShowsNoSecret) {
    aaad_.list("authorization/commands/default", {AAA_METHOD_LOCAL});
    aaad_.start();
    Ask ask;
    aaad_.login(ask);
    ask.password = "jabberwocky";
    aaad_.login(ask);
    ask.password = std::nullopt;
    Client client = aaad_.client();
    const Reply question = client.authenticate(ask);
    ask.state = question.state;
    ask.password = "the-answer";
    client.authenticate(ask);
    Ask command;
    command.command = "username carol password 7 bandersnatch";
    aaad_.client().authorize(command);
    const auto events = ControlSocket(path()).kept();
    std::string all;
    for (const JsonDocument &event : events) {
        all += event.dump() + "\n";
    }
    EXPECT_NE(all.find("username carol password ***"), std::string::npos) << all;
    for (const char *secret : {"wonderland", "jabberwocky", "the-answer", "bandersnatch", "aaadtest"}) {
        EXPECT_EQ(all.find(secret), std::string::npos) << all;
    }
    EXPECT_FALSE(question.state.empty());
    EXPECT_EQ(all.find(question.state), std::string::npos) << all;
}

}  // namespace
