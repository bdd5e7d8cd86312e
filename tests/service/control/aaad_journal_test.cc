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
            for (const std::string &line : journal_.take()) {
                lines_.push_back(journal_fields(line));
            }
            for (const JournalFields &fields : lines_) {
                if (value(fields, "AAA_MNEMONIC") == mnemonic) {
                    return value(fields, name);
                }
            }
            poll(nullptr, 0, 10);
        }
        return "no such line";
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

}  // namespace
}  // namespace groups_test
