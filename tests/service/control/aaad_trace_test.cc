// SPDX-License-Identifier: Apache-2.0
//
// What aaactl shows of a running service.

#include <signal.h>

#include <regex>

#include "aaactl/support/program_started.hpp"
#include "service/control/control_socket.hpp"
#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

using aaactl_test::aaactl;
using aaactl_test::JsonDocument;
using Printed = aaactl_test::Run;  // a test has a Run of its own
using aaactl_test::Started;
using control_test::ControlSocket;
using radius_test::UdpServer;

class AaadTrace : public GroupTest {
  protected:
    std::string path() const { return aaad_.dir().path("control.sock"); }
    Printed ask(std::vector<std::string> words, const std::string &input = "") const {
        words.insert(words.end(), {"--socket", path()});
        return aaactl(words, input);
    }
    // "step subject outcome > next", without the times.
    std::vector<std::string> steps(const std::vector<JsonDocument> &events) const {
        std::vector<std::string> all;
        for (const JsonDocument &event : events) {
            std::string text = event["step"].text() + " " + event["subject"].text();
            for (const char *name : {"outcome", "next"}) {
                text += event.contains(name) ? (*name == 'n' ? " > " : ": ") + event[name].text() : "";
            }
            all.push_back(text);
        }
        return all;
    }
    static std::vector<JsonDocument> lines(const std::string &output) {
        std::vector<JsonDocument> all;
        for (std::size_t at = 0; at < output.size(); at = output.find('\n', at) + 1) {
            all.push_back(JsonDocument::parse(output.substr(at, output.find('\n', at) - at)));
        }
        return all;
    }
    static bool contains(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos;
    }

    UdpServer first_{loop_}, second_{loop_};
};

TEST_F(AaadTrace, ALoginWithADeadServerShowsEachStepInOrder) {
    add_radius(first_, 50, 2);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_EQ(aaad_.login(ask_as("bob", "wrong")).status, uint32_t{AAA_STAT_FAIL});
    const std::string server = "radius/" + entry_of(first_);
    const Printed run = ask({"trace", "alice", "--no-wait", "--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    const auto events = lines(run.out);
    EXPECT_EQ(steps(events),
              (std::vector<std::string>{
                  "request authentication", "list authentication/login/default", "method group corp",
                  "server " + server, "reply " + server + ": silent", "outcome group corp: no answer > local",
                  "method local", "outcome local: pass", "answer PASS: pass"}));
    ASSERT_EQ(events.size(), 9u);
    EXPECT_EQ(events[0]["remote"], "192.0.2.10");
    EXPECT_EQ(events[0]["terminal"], "vty0");
    EXPECT_EQ(events[0]["service"], "login");
    EXPECT_EQ(events[0]["client_pid"], getpid());
    EXPECT_EQ(events[4]["tries"], requests_at(first_)) << "of the first login";
    EXPECT_GE(events[4]["us"].number(), 90000u);
    EXPECT_TRUE(contains(events[4]["detail"].text(), "there is no other server"));
    const std::string id = events[0]["id"].text();
    for (const JsonDocument &event : events) {
        EXPECT_EQ(event["id"], id);
    }
    EXPECT_TRUE(aaad_.wait_for_log("[" + id + "] authentication of alice")) << "the id of the log lines";
    // The second login passes the server over.
    const auto refused = lines(ask({"trace", "bob", "--no-wait", "--json"}).out);
    EXPECT_EQ(steps(refused),
              (std::vector<std::string>{"request authentication", "list authentication/login/default",
                                        "method group corp", "server " + server + ": passed over",
                                        "outcome group corp: no answer > local", "method local",
                                        "outcome local: refused", "answer FAIL: refused"}));
    const Printed nothing = ask({"trace", "carol", "--no-wait"});
    EXPECT_EQ(nothing.out, "");
    EXPECT_TRUE(contains(nothing.err, "the service remembers no such step; it runs since 20")) << nothing.err;
    EXPECT_EQ(lines(ask({"trace", "--id", id, "--no-wait", "--json"}).out).size(), 9u);
    EXPECT_EQ(lines(ask({"trace", "--since", "1h", "--no-wait", "--json"}).out).size(), 17u);
}

TEST_F(AaadTrace, LinesAreForPeople) {
    add_radius(first_, 50, 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.login();
    const std::string text = ask({"trace", "--no-wait"}).out;
    const std::string prefix = "[0-9:]{8}\\.[0-9]{3} \\[[0-9a-f]{8}\\] ";
    for (const char *line :
         {"request  authentication of alice, service login, from 192.0.2.10, on vty0, for client [0-9]+ of "
          "user [a-z0-9]+\n",
          "list     authentication/login/default\n", "method   group corp\n",
          "reply    radius/[0-9.,]+: silent after [0-9.]+ ms in 1 try: [^\n]*; there is no other server\n",
          "outcome  group corp: no answer after [0-9.]+ ms: [^\n]*; the next is local\n",
          "outcome  local: pass after [0-9.]+ ms: the password is right\n",
          "answer   PASS: pass after [0-9.]+ ms: local: the password is right\n"}) {
        EXPECT_TRUE(std::regex_search(text, std::regex(prefix + line))) << line << "\n" << text;
    }
}

TEST_F(AaadTrace, NamesCannotForgeLines) {
    lists({AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.login(ask_as("ann\u202e\u200b", "x"));
    for (const char *json : {"--json", "--color=never"}) {
        const std::string text = ask({"trace", "--no-wait", json}).out;
        EXPECT_FALSE(contains(text, "\u202e")) << text;
        EXPECT_TRUE(contains(text, "ann")) << text;
    }
}

TEST_F(AaadTrace, ATestShowsTheStepsAndTheAnswer) {
    add_radius(first_, 50, 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    const Printed passed = ask({"test", "alice", "--command", "show version"}, "wonderland\n");
    EXPECT_EQ(passed.status, 0) << passed.out << passed.err;
    for (const char *part :
         {"; the next is local\n", "outcome  local: pass", "=> PASS", "command \"show version\"",
          "alice: accepted; log lines of it: journalctl AAA_LOGIN_ID="}) {
        EXPECT_TRUE(contains(passed.out, part)) << part << "\n" << passed.out;
    }
    EXPECT_FALSE(contains(passed.out, "wonderland"));
    const Printed refused = ask({"test", "alice", "--json"}, "wrong\n");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.json()["verdict"], "denied");
    EXPECT_EQ(refused.json()["trace"].back()["outcome"], "refused");
    EXPECT_EQ(refused.json()["trace"][0]["user"], "alice");
    const Printed command = ask({"test", "bob", "--command", "reload"}, "looking-glass\n");
    EXPECT_EQ(command.status, 1) << command.out << command.err;
}

TEST_F(AaadTrace, ATestAsksForWhatTheServerAsks) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    Started test({"test", "ann", "--no-password", "--socket", path()}, Started::On::terminal);
    // The steps name the prompt too; what is typed before the prompt itself is discarded.
    EXPECT_TRUE(test.wait_shown("\r\nPassword: "));
    test.type("secret\n");
    first_.answer(first_.next(), radius::Code::kAccessAccept, number_attribute(6, 6));
    EXPECT_EQ(test.wait(), 0) << test.shown();
    EXPECT_TRUE(contains(test.shown(), "Access-Accept")) << test.shown();
    EXPECT_FALSE(contains(test.shown(), "secret"));
}

TEST_F(AaadTrace, ServersSayWhichAnswerAndWhyNot) {
    add_radius(first_, 50, 2);
    add_radius(second_);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    Printed run = ask({"servers"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.out, "not asked")) << run.out;
    {
        Login login(aaad_, ask_as("ann", "secret"));
        second_.answer(second_.next());
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    run = ask({"servers"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(std::regex_search(
        run.out, std::regex("radius/" + entry_of(first_) + " is dead: .+; it is asked again in [0-9]+ s\n")))
        << run.out;
    const JsonDocument json = ask({"servers", "--json"}).json();
    const JsonDocument servers = json["groups"][0]["servers"];
    ASSERT_EQ(servers.size(), 4u) << "each with a port for accounting";
    EXPECT_EQ(json["groups"][0]["group"], "corp");
    EXPECT_EQ(servers[0]["state"], "dead");
    EXPECT_EQ(servers[0]["use"], "authentication");
    EXPECT_EQ(servers[0]["asked"], 1);
    const uint32_t tries = requests_at(first_);
    EXPECT_GE(tries, 1u);
    EXPECT_LE(tries, 2u);
    EXPECT_EQ(servers[0]["tries"], tries);
    EXPECT_EQ(servers[0]["timeouts"], 1);
    EXPECT_FALSE(servers[0].contains("last_us"));
    EXPECT_EQ(servers[1]["state"], "up");
    EXPECT_EQ(servers[1]["use"], "accounting");
    EXPECT_EQ(servers[2]["state"], "up");
    EXPECT_EQ(servers[2]["answers"], 1);
    EXPECT_GT(servers[2]["last_us"].number(), 0u);
    EXPECT_EQ(servers[2]["in_flight"], 0);
    EXPECT_FALSE(contains(json.dump(), radius_test::kSecret));
}

TEST_F(AaadTrace, AServerThatIsNeverTakenForDeadIsShownAsFailing) {
    add_radius(first_, 3000, 1);
    set_number("radius", entry_of(first_), "dead-time", 0);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    const Printed run = ask({"servers"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.out, "radius/" + entry_of(first_) + " is failing: ")) << run.out;
    EXPECT_TRUE(contains(run.out, "; requests ask it all the same\n")) << run.out;
    {
        Login login(aaad_, ask_as("ann", "secret"));
        first_.next();  // the one that was not answered
        first_.answer(first_.next());
        login.wait();
    }
    EXPECT_EQ(ask({"servers"}).status, 0);
}

TEST_F(AaadTrace, FollowsUntilItIsInterrupted) {
    lists({AAA_METHOD_LOCAL});
    aaad_.start();
    for (const int signal : {SIGINT, SIGTERM}) {
        Started trace({"trace", "alice", "--all", "--socket", path()});
        if (signal == SIGINT) {
            // The service knows the program before the login comes.
            while (ControlSocket(path()).ask(R"({"request":"status"})")["control_clients"] != 2) {
            }
        }
        aaad_.login(ask_as("bob", "looking-glass"));
        aaad_.login();
        EXPECT_TRUE(trace.wait_shown("answer   PASS"));
        EXPECT_FALSE(contains(trace.shown(), "bob"));
        EXPECT_EQ(trace.end(signal), 0);
    }
}

TEST_F(AaadTrace, EndsWithItsReader) {
    lists({AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.login();
    const Printed run =
        aaactl_test::in_shell("aaactl trace --all --socket " + path() + " | head -n 1; echo ended");
    EXPECT_TRUE(contains(run.out, "ended")) << run.err;
    const Printed quiet = aaactl_test::in_shell("aaactl trace carol --socket " + path() + " | :; echo ended");
    EXPECT_EQ(quiet.out, "ended\n") << "it does not wait for the next step";
}

TEST_F(AaadTrace, SaysThatTheServiceHasEndedOrGoesOnWithTheNext) {
    lists({AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.login();
    Started once({"trace", "--all", "--socket", path()});
    Started follows({"trace", "--all", "--follow", "--json", "--socket", path()});
    EXPECT_TRUE(once.wait_shown("answer"));
    EXPECT_TRUE(follows.wait_shown("\"answer\""));
    aaad_.stop();
    EXPECT_EQ(once.wait(), 5);
    aaad_.start();
    aaad_.login(ask_as("bob", "looking-glass"));
    EXPECT_TRUE(follows.wait_shown("\"bob\""));
    EXPECT_TRUE(follows.wait_shown("\"PASS\""));
    EXPECT_EQ(follows.end(SIGINT), 0);
}

TEST_F(AaadTrace, AStoppedServiceIsGivenUp) {
    lists({AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.signal(SIGSTOP);
    for (const std::vector<std::string> &command : {std::vector<std::string>{"trace"},
                                                    {"trace", "--follow"},
                                                    {"servers"},
                                                    {"status"},
                                                    {"test", "alice"}}) {
        auto words = command;
        words.insert(words.end(), {"--timeout", "1"});
        const Printed run = ask(words, "wonderland\n");
        EXPECT_EQ(run.status, 5);
        EXPECT_TRUE(contains(
            run.err, "does not answer within 1 s; it is stopped or overloaded, see: systemctl status aaad"))
            << run.err;
    }
    aaad_.signal(SIGCONT);
    EXPECT_EQ(ask({"status"}).status, 0);
}

TEST_F(AaadTrace, WithoutAServiceSaysHowToStartIt) {
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"trace"}, {"servers"}, {"status"}, {"test", "alice"}}) {
        const Printed run = ask(command, "wonderland\n");
        EXPECT_EQ(run.status, 5);
        EXPECT_EQ(run.err, "aaactl: " + path() +
                               ": the service does not run, or its socket was removed; restart it: "
                               "systemctl restart aaad\n");
    }
    EXPECT_EQ(ask({"trace", "--since", "yesterday"}).status, 2);
    EXPECT_EQ(ask({"trace", "--since", "5m", "--all"}).status, 2);
    EXPECT_EQ(ask({"trace", "--json"}).json()["error"]["exit"], 5);
}

}  // namespace
}  // namespace groups_test
