// SPDX-License-Identifier: Apache-2.0
//
// aaactl at control sockets of services that misbehave.

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "aaactl/support/fixed_service.hpp"
#include "aaactl/support/program_run.hpp"
#include "support/machine.hpp"
#include "support/temp_dir.hpp"

namespace {

using namespace aaactl_test;
using Printed = aaactl_test::Run;  // a test has a Run of its own

Printed ask(const std::string &command, const std::string &bytes) {
    const TempDir dir;
    const FixedService service(dir.path("control.sock"), bytes);
    return aaactl({command, "--socket", dir.path("control.sock")});
}

TEST(AaactlControl, TellsWhyAServiceAnswersNothing) {
    const struct {
        std::string bytes;
        int status;
        const char *error;
    } rows[] = {
        {"", 5, "has ended the connection"},
        {"{\"version\":1", 5, "has ended the connection"},
        {"nonsense\n", 3, "JSON"},
        {"\n", 3, "JSON"},
        {std::string(200, '[') + "\n", 3, "JSON"},
        {"{\"error\":\"only root\\u001b[2J\",\"code\":\"not-allowed\"}\n", 5, "only root\\x1b[2J"},
        {"{\"error\":\"too many\",\"code\":\"too-many\"}\n", 5, "too many"},
        {"{\"error\":\"what?\",\"code\":\"bad-request\"}\n", 6, "what?"},
        {std::string(17 << 20, ' '), 3, "a line without end"},
    };
    for (const auto &row : rows) {
        for (const char *command : {"status", "servers", "trace"}) {
            const Printed run = ask(command, row.bytes);
            EXPECT_EQ(run.status, row.status) << command << " " << row.bytes.substr(0, 100) << run.err;
            EXPECT_NE(run.err.find(row.error), std::string::npos) << run.err;
        }
    }
}

// An answer may lack what this aaactl knows, and have what it does not.
TEST(AaactlControl, ToleratesAnswersOfOtherVersions) {
    for (const char *answer :
         {"{}\n", "[]\n", "1\n", "\"x\"\n", "null\n", "{\"groups\":1,\"configuration\":[1]}\n",
          "{\"groups\":[1,{},{\"servers\":[1,{},{\"state\":5,\"since\":-1,\"asked\":\"x\"}]}]}\n"}) {
        for (const char *command : {"status", "servers"}) {
            const Printed run = ask(command, answer);
            EXPECT_TRUE(run.status >= 0 && run.status < 7)
                << command << " " << answer << run.status << run.err;
        }
    }
    for (const char *events :
         {"{\"event\":\"step\"}\n", "{\"event\":\"step\",\"step\":5,\"id\":{},\"time\":-1,\"us\":\"x\"}\n",
          "{\"event\":\"new\"}\n", "{\"event\":\"lost\"}\n", "7\n"}) {
        const Printed run =
            ask("trace", std::string("{\"reply\":\"status\"}\n{\"reply\":\"trace\"}\n") + events);
        EXPECT_EQ(run.status, 5) << events << run.err;
        EXPECT_NE(run.err.find("to go on when it runs again: --follow"), std::string::npos) << run.err;
    }
}

TEST(AaactlControl, ShowsNoControlCharacters) {
    const std::string step =
        "{\"event\":\"step\",\"id\":\"\\u001b]0;x\\u0007\",\"step\":\"reply\\n\",\"subject\":\"a\\u001b[2J\","
        "\"detail\":"
        "\"\\u202e\",\"outcome\":\"\\r\",\"next\":\"\\u0000\",\"text\":\"\\u009b\"}\n";
    const Printed run = ask("trace", "{}\n{}\n" + step);
    for (const char c : run.out) {
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c < '\x7f')) << run.out;
    }
    EXPECT_NE(run.out.find("a\\x1b[2J"), std::string::npos) << run.out;
}

TEST(AaactlControl, TellsOtherUsersWhoMayAsk) {
    SKIP_WITHOUT_ROOT("needs root, to be another user");
    const TempDir dir;
    const FixedService service(dir.path("control.sock"), "{}\n");
    ASSERT_EQ(chmod(dir.path("").c_str(), 0755), 0);
    ASSERT_EQ(chmod(dir.path("control.sock").c_str(), 0660), 0);
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setresgid(65534, 65534, 0), 0);
    ASSERT_EQ(setresuid(65534, 65534, 0), 0);
    const Printed run = aaactl({"status", "--socket", dir.path("control.sock")});
    ASSERT_EQ(setresuid(0, 0, 0), 0);
    ASSERT_EQ(setresgid(0, 0, 0), 0);
    EXPECT_EQ(run.status, 5);
    EXPECT_NE(run.err.find("only root and members of the group aaa may ask; use sudo"), std::string::npos)
        << run.err;
}

TEST(AaactlControl, RefusesPathsThatAreTooLong) {
    EXPECT_EQ(aaactl({"status", "--socket", std::string(200, 'x')}).status, 2);
    EXPECT_EQ(aaactl({"status", "--socket", ""}).status, 2);
}

}  // namespace
