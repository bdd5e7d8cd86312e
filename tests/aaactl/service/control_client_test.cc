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

constexpr char kStatus[] =
    "{\"reply\":\"status\",\"program\":\"aaad "
    "1\",\"pid\":1,\"since\":1,\"socket\":\"/s\",\"configuration\":{}";
const std::string kNoAlarms = std::string(kStatus) + ",\"alarms\":[]";
constexpr char kServer[] =
    "{\"reply\":\"servers\",\"groups\":[{\"servers\":[{\"server\":\"s\",\"state\":\"up\"";
constexpr char kTrace[] = "{\"reply\":\"trace\"}\n";

// Another program may listen at the path.
TEST(AaactlControl, RefusesWhatIsNoAnswerOfTheService) {
    const std::string deep(100000, '[');
    const std::string answers[] = {"{}\n",
                                   "[]\n",
                                   "1\n",
                                   "\"x\"\n",
                                   "null\n",
                                   "\n",
                                   "HTTP/1.1 400 Bad Request\r\n",
                                   deep + "\n",
                                   "{\"reply\":[]}\n",
                                   "{\"reply\":\"other\"}\n",
                                   "{\"reply\":" + deep + "\n",
                                   "{\"reply\":1e999}\n"};
    for (const std::string &answer : answers) {
        for (const char *command : {"status", "servers", "trace", "capture"}) {
            const TempDir dir;
            const FixedService service(dir.path("control.sock"), answer);
            std::vector<std::string> words{command, "--socket", dir.path("control.sock")};
            if (std::string(command) == "capture") {
                words.insert(words.end(), {"-o", dir.path("file")});
            }
            const Printed run = aaactl(words);
            EXPECT_EQ(run.status, 3) << command << " " << answer.substr(0, 60) << run.err;
            EXPECT_NE(run.err.find("--socket"), std::string::npos) << run.err;
            EXPECT_LT(run.err.size(), 500u);
            EXPECT_NE(access(dir.path("file").c_str(), F_OK), 0) << "a refused capture leaves a file";
        }
    }
}

TEST(AaactlControl, RefusesMembersOfOtherTypes) {
    const struct {
        const char *command;
        std::string answer;
        const char *error;
    } rows[] = {
        {"status", "{\"reply\":\"status\"}", "no \"program\""},
        {"status", kStatus + std::string(",\"alarms\":{}}"), "\"alarms\" is not a list of objects"},
        {"status", kStatus + std::string(",\"alarms\":[7]}"), "\"alarms\" is not a list of objects"},
        {"status", kStatus + std::string(",\"alarms\":[{}]}"), "no \"alarms[].alarm\""},
        {"status", kNoAlarms + std::string(",\"clients\":18446744073709551616}"),
         "\"clients\" is not a number"},
        {"status", kNoAlarms + std::string(",\"clients\":-1}"), "\"clients\" is not a number"},
        {"status", kNoAlarms + std::string(",\"accounting\":{\"groups\":[{\"group\":[]}]}}"),
         "\"accounting.groups[].group\" is not a text"},
        {"servers", "{\"reply\":\"servers\",\"groups\":1}", "\"groups\" is not a list of objects"},
        {"servers", "{\"reply\":\"servers\",\"groups\":[{}]}", "no \"groups[].servers\""},
        {"servers", kServer + std::string(",\"asked\":\"x\"}]}]}"),
         "\"groups[].servers[].asked\" is not a number"},
        {"trace", "{\"event\":\"step\",\"step\":5}", "\"step\" is not a text"},
        {"trace", "{\"event\":\"step\",\"time\":-1}", "\"time\" is not a number"},
        {"trace", "{\"step\":\"reply\"}", "no \"event\""},
        {"trace", "7", "not an object"},
    };
    for (const auto &row : rows) {
        const bool is_trace = std::string(row.command) == "trace";
        const Printed run =
            ask(row.command, (is_trace ? kNoAlarms + "}\n" + kTrace : "") + row.answer + "\n");
        EXPECT_EQ(run.status, 3) << row.answer << run.err;
        EXPECT_NE(run.err.find(row.error), std::string::npos) << row.answer << run.err;
    }
}

// A later version may say more, and leave out what not every service has.
TEST(AaactlControl, ToleratesAnswersOfOtherVersions) {
    EXPECT_EQ(ask("status", kNoAlarms + ",\"new\":[1]}\n").status, 0);
    EXPECT_EQ(ask("servers", std::string(kServer) + ",\"new\":{}}]}]}\n").status, 0);
    for (const char *event : {"{\"event\":\"step\"}\n", "{\"event\":\"new\"}\n", "{\"event\":\"lost\"}\n",
                              "{\"event\":\"step\",\"time\":18446744073709551615,\"client_uid\":"
                              "18446744073709551615,\"step\":\"request\"}\n"}) {
        const Printed run = ask("trace", kNoAlarms + "}\n" + kTrace + event);
        EXPECT_EQ(run.status, 5) << event << run.err;
        EXPECT_NE(run.err.find("to go on when it runs again: --follow"), std::string::npos) << run.err;
    }
}

TEST(AaactlControl, ShowsNoControlCharacters) {
    const std::string step =
        "{\"event\":\"step\",\"id\":\"\\u001b]0;x\\u0007\",\"step\":\"reply\\n\",\"subject\":\"a\\u001b[2J\","
        "\"detail\":"
        "\"\\u202e\",\"outcome\":\"\\r\",\"next\":\"\\u0000\",\"text\":\"\\u009b\"}\n";
    const Printed run = ask("trace", kNoAlarms + "}\n" + kTrace + step);
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
