// SPDX-License-Identifier: Apache-2.0
//
// Remote addresses of lines, from login records and the environment.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utmp.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "log_socket.hpp"
#include "platform/terminal.h"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2571000u;
constexpr cerrno kNoAddress = 0xa2571400u;

std::string own_device() {
    char name[64];
    return ttyname_r(0, name, sizeof name) == 0 ? name : "/dev/none";
}

std::string hex(cerrno code) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", code);
    return text;
}

utmp entry_of(const std::string &line, pid_t pid, const char *address = nullptr, const char *host = "",
              short type = USER_PROCESS) {
    utmp entry{};
    entry.ut_type = type;
    entry.ut_pid = pid;
    std::memcpy(entry.ut_line, line.data(), std::min(line.size(), sizeof entry.ut_line));
    std::memcpy(entry.ut_host, host, std::min(std::strlen(host), sizeof entry.ut_host));
    if (address != nullptr && inet_pton(AF_INET, address, entry.ut_addr_v6) != 1) {
        EXPECT_EQ(1, inet_pton(AF_INET6, address, entry.ut_addr_v6));
    }
    return entry;
}

struct RemoteAddress : testing::Test {
    TempDir dir;

    static std::string find(uint32_t size = 46) {
        char buffer[64];
        std::memset(buffer, 'x', sizeof buffer);
        const cerrno rc = aaa_util_find_line_remote_addr(buffer, size);
        EXPECT_EQ('x', buffer[size]);
        return rc == 0 ? buffer : rc == kNoAddress && *buffer == '\0' ? "none" : hex(rc);
    }

    using Entries = std::function<std::vector<utmp>(const std::string &line)>;

    // Address of a login whose record file and environment are given.
    std::string on_terminal(const Entries &entries, const std::vector<std::string> &settings = {}) const {
        const std::string path = dir.path("utmp");
        TerminalProcess child([&] {
            const std::vector<utmp> rows = entries(own_device().substr(std::strlen("/dev/")));
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char *>(rows.data()),
                       static_cast<std::streamsize>(rows.size() * sizeof(utmp)));
            setenv("AAA_UTMP", path.c_str(), 1);
            unsetenv("SSH_CONNECTION");
            unsetenv("SSH_CLIENT");
            for (const std::string &setting : settings) {
                putenv(strdup(setting.c_str()));
            }
            return find();
        });
        return child.report();
    }
};

const pid_t kAlive = getpid();

}  // namespace

TEST_F(RemoteAddress, ComesFromTheLoginRecord) {
    EXPECT_EQ(
        "192.0.2.7", on_terminal([](const std::string &line) {
            return std::vector{entry_of("tty1", kAlive, "198.51.100.1"), entry_of(line, kAlive, "192.0.2.7")};
        }));
    EXPECT_EQ("2001:db8::7", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, "2001:db8::7")};
              }));
}

TEST_F(RemoteAddress, IsWrittenAsIPv4WhenItWasMapped) {
    EXPECT_EQ("192.0.2.7", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, "::ffff:192.0.2.7")};
              }));
}

TEST_F(RemoteAddress, ComesFromTheHostFieldWhenThatIsNumeric) {
    EXPECT_EQ("192.0.2.9", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, nullptr, "192.0.2.9")};
              }));
    EXPECT_EQ("fe80::1", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, nullptr, "fe80::1%eth0")};
              }));
    EXPECT_EQ("none", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, nullptr, "host.example.net")};
              }));
}

TEST_F(RemoteAddress, TakesTheLastRecordOfTheLine) {
    EXPECT_EQ(
        "192.0.2.2", on_terminal([](const std::string &line) {
            return std::vector{entry_of(line, kAlive, "192.0.2.1"), entry_of(line, kAlive, "192.0.2.2")};
        }));
}

TEST_F(RemoteAddress, IgnoresRecordsOfEndedLogins) {
    EXPECT_EQ("none", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, "192.0.2.1", "", DEAD_PROCESS),
                                     entry_of(line, 0x3fffffff, "192.0.2.2"),
                                     entry_of(line + "0", kAlive, "192.0.2.3")};
              }));
}

TEST_F(RemoteAddress, SurvivesACutRecordFile) {
    const std::string path = dir.write("cut", std::string(100, '\xff'));
    TerminalProcess child([&] {
        setenv("AAA_UTMP", path.c_str(), 1);
        unsetenv("SSH_CONNECTION");
        unsetenv("SSH_CLIENT");
        return find();
    });
    EXPECT_EQ("none", child.report());
}

TEST_F(RemoteAddress, ComesFromTheEnvironmentOtherwise) {
    const auto no_record = [](const std::string &) { return std::vector<utmp>{}; };
    EXPECT_EQ("203.0.113.5", on_terminal(no_record, {"SSH_CONNECTION=203.0.113.5 50000 192.0.2.1 22"}));
    EXPECT_EQ("203.0.113.6", on_terminal(no_record, {"SSH_CLIENT=203.0.113.6 50000 22"}));
    EXPECT_EQ("2001:db8::5", on_terminal(no_record, {"SSH_CONNECTION=2001:db8::5 50000 2001:db8::1 22"}));
    EXPECT_EQ("fe80::5", on_terminal(no_record, {"SSH_CONNECTION=fe80::5%eth0 50000 fe80::1%eth0 22"}));
    EXPECT_EQ("203.0.113.6",
              on_terminal(no_record, {"SSH_CONNECTION=junk 1 2 3", "SSH_CLIENT=203.0.113.6 1 2"}));
    EXPECT_EQ("none", on_terminal(no_record));
}

TEST_F(RemoteAddress, PrefersTheLoginRecordToTheUsersEnvironment) {
    EXPECT_EQ(
        "192.0.2.7",
        on_terminal([](const std::string &line) { return std::vector{entry_of(line, kAlive, "192.0.2.7")}; },
                    {"SSH_CONNECTION=203.0.113.5 50000 192.0.2.1 22"}));
}

TEST_F(RemoteAddress, TakesOnlyNumericAddresses) {
    const auto no_record = [](const std::string &) { return std::vector<utmp>{}; };
    for (const char *value :
         {"", " 203.0.113.5", "203.0.113", "203.0.113.5x 1 2 3", "localhost 1 2 3", "1;2 3",
          "::ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff 1 2 3", "%eth0 1 2 3"}) {
        EXPECT_EQ("none", on_terminal(no_record, {std::string("SSH_CONNECTION=") + value})) << value;
    }
    EXPECT_EQ("none", on_terminal(no_record, {"SSH_CONNECTION=" + std::string(5000, '1')}));
}

TEST_F(RemoteAddress, WorksWithoutATerminal) {
    TerminalProcess child(
        [] {
            setenv("SSH_CONNECTION", "203.0.113.5 50000 192.0.2.1 22", 1);
            return find();
        },
        false);
    EXPECT_EQ("203.0.113.5", child.report());
}

TEST_F(RemoteAddress, KeepsToTheBuffer) {
    TerminalProcess child(
        [] {
            setenv("SSH_CONNECTION", "2001:db8:1111:2222:3333:4444:5555:6666 1 :: 2", 1);
            return find(38) + " " + find(39) + " " + find(1);
        },
        false);
    EXPECT_EQ("none 2001:db8:1111:2222:3333:4444:5555:6666 none", child.report());
    char c = 'x';
    EXPECT_EQ(kInvalidArg, aaa_util_find_line_remote_addr(nullptr, 46));
    EXPECT_EQ(kInvalidArg, aaa_util_find_line_remote_addr(&c, 0));
    EXPECT_EQ('x', c);
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
