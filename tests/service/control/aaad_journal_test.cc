// SPDX-License-Identifier: Apache-2.0
//
// The service's log lines in the systemd journal.

#include <poll.h>

#include <cstdlib>

#include "platform/journal_fields.hpp"
#include "platform/log_socket.hpp"
#include "service/control/control_socket.hpp"
#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

class AaadJournal : public GroupTest {
  protected:
    // The fields of the next line of a kind.
    std::string field_of(const std::string &mnemonic, const std::string &name) {
        for (int waited = 0; waited < 60000; waited += 10) {
            take_lines();
            for (const JournalFields &fields : lines_) {
                if (value(fields, "AAA_MNEMONIC") == mnemonic) {
                    return value(fields, name);
                }
            }
            poll(nullptr, 0, 10);
        }
        return "no such line";
    }

    void take_lines() {
        for (const std::string &line : journal_.take()) {
            lines_.push_back(journal_fields(line));
        }
    }
    // Whether a line or a field, of those until now, holds a text.
    bool has_line(const std::string &text) {
        take_lines();
        for (const JournalFields &fields : lines_) {
            for (const auto &[key, held] : fields) {
                if (held.find(text) != std::string::npos) {
                    return true;
                }
            }
        }
        return false;
    }

    LogSocket journal_;

  private:
    static std::string value(const JournalFields &fields, const std::string &name) {
        for (const auto &[key, text] : fields) {
            if (key == name) {
                return text;
            }
        }
        return "none";
    }

    std::vector<JournalFields> lines_;
};

TEST_F(AaadJournal, LinesOfALoginHaveItsFields) {
    radius_test::UdpServer server(loop_);
    add_radius(server, 50, 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.before_exec([path = journal_.path()] {
        setenv("AAA_LOG", "journal", 1);
        setenv("AAA_JOURNAL_SOCKET", path.c_str(), 1);
    });
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    const auto events = control_test::ControlSocket(aaad_.dir().path("control.sock")).kept();
    ASSERT_FALSE(events.empty());
    const std::string id = events[0]["id"].text();
    EXPECT_EQ(field_of("NO_ANSWER", "AAA_LOGIN_ID"), id);
    EXPECT_EQ(field_of("NO_ANSWER", "AAA_USER"), "alice");
    EXPECT_EQ(field_of("NO_ANSWER", "AAA_STEP"), "outcome");
    EXPECT_EQ(field_of("NO_ANSWER", "AAA_SUBJECT"), "group corp");
    EXPECT_EQ(field_of("ANSWER", "AAA_LOGIN_ID"), id);
    EXPECT_EQ(field_of("ANSWER", "AAA_CLIENT_PID"), std::to_string(getpid()));
    EXPECT_EQ(
        field_of("ANSWER", "MESSAGE").find("%AAA-SERVICE-6-ANSWER : [" + id + "] authentication of alice"),
        0u);
    EXPECT_EQ(field_of("READY", "AAA_LOGIN_ID"), "none");
}

// What is typed for a name may be a password.
TEST_F(AaadJournal, ANameThatNoOneHasIsNotWrittenDown) {
    lists({AAA_METHOD_LOCAL});
    aaad_.settings("log-unknown-names no\nlockout-failures 2\n");
    aaad_.before_exec([path = journal_.path()] {
        setenv("AAA_LOG", "journal", 1);
        setenv("AAA_JOURNAL_SOCKET", path.c_str(), 1);
    });
    aaad_.start({"--debug"});
    for (const char *user : {"s3cret!", "s3cret!", "s3cret!", "alice", "daemon"}) {
        EXPECT_EQ(aaad_.login(ask_as(user, "wrong")).status, uint32_t{AAA_STAT_FAIL});
        take_lines();  // the socket holds ten
    }
    EXPECT_EQ(field_of("LOCKED_OUT", "AAA_USER"), "(unknown name)");
    EXPECT_EQ(field_of("ANSWER", "AAA_USER"), "(unknown name)");
    EXPECT_TRUE(has_line("authentication of alice")) << "a local user";
    EXPECT_TRUE(has_line("authentication of daemon")) << "an account of the host";
    EXPECT_FALSE(has_line("s3cret")) << "in no line and no field";
    control_test::ControlSocket control(aaad_.dir().path("control.sock"));
    int unknown = 0;
    for (const auto &event : control.kept()) {
        EXPECT_EQ(event.dump().find("s3cret"), std::string::npos) << event.dump();
        unknown += event["user"] == "(unknown name)" ? 1 : 0;
    }
    EXPECT_GT(unknown, 0);
    control_test::ControlSocket asks(aaad_.dir().path("control.sock"));
    EXPECT_EQ(asks.ask(R"({"request":"trace","user":"s3cret!","live":false})")["reply"], "trace");
    const auto first = asks.next();
    EXPECT_EQ(first["step"], "request");
    EXPECT_EQ(first["user"], "s3cret!") << "who asks knows the name";
    control_test::ControlSocket none(aaad_.dir().path("control.sock"));
    EXPECT_EQ(none.ask(R"x({"request":"trace","user":"(unknown name)","live":false})x")["reply"], "trace");
    EXPECT_EQ(none.next()["event"], "end");
}

// The users of servers are known by their first login.
TEST_F(AaadJournal, ANameIsKnownOnceAMethodHasAcceptedIt) {
    lists({AAA_METHOD_LOCAL});
    aaad_.settings("log-unknown-names no\n");
    aaad_.start();
    EXPECT_EQ(aaad_.login(ask_as("carol", "wrong")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_TRUE(aaad_.wait_for_log("authentication of (unknown name) from"));
    aaad_.users("carol:" + aaad_test::hash_of("right") + ":1\n");
    EXPECT_TRUE(aaad_.wait_for_log("USERS"));
    aaad_.wait_for_login(ask_as("carol", "right"),
                         [](const Reply &reply) { return reply.status == AAA_STAT_PASS; });
    aaad_.users("alice:" + aaad_test::hash_of("wonderland") + ":1\n");
    EXPECT_TRUE(aaad_.wait_for_log("USERS"));
    aaad_.wait_for_login(ask_as("carol", "right"),
                         [](const Reply &reply) { return reply.status == AAA_STAT_FAIL; });
    EXPECT_TRUE(aaad_.wait_for_log("authentication of carol from 192.0.2.10 on vty0 for client"));
    EXPECT_NE(aaad_.log().find("of carol"), std::string::npos);
}

// A record in the log would say nothing without the name. Who has a session is known by it.
TEST_F(AaadJournal, TheNameOfASessionIsWrittenDown) {
    lists({AAA_METHOD_LOCAL});
    aaad_.list("accounting/exec/default", {AAA_METHOD_SYSLOG}, {0, 0, 0});
    aaad_.settings("log-unknown-names no\n");
    aaad_.start();
    EXPECT_EQ(aaad_.client().account(ask_as("carol", "x")).result, AAA_OK);
    EXPECT_TRUE(aaad_.wait_for_log("start user=carol "));
    EXPECT_TRUE(aaad_.wait_for_log("accounting of carol ")) << "as in other lines";
}

// A method that takes any name knows none.
TEST_F(AaadJournal, ANameIsNotKnownByAMethodThatTakesAny) {
    lists({AAA_METHOD_NONE});
    aaad_.settings("log-unknown-names no\nforce-configuration yes\n");
    aaad_.start();
    EXPECT_EQ(aaad_.login(ask_as("s3cret!", "x")).status, uint32_t{AAA_STAT_PASS});
    EXPECT_TRUE(aaad_.wait_for_log("authentication of (unknown name) from"));
    EXPECT_EQ(aaad_.log().find("s3cret"), std::string::npos);
}

}  // namespace
}  // namespace groups_test
