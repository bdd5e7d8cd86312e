// SPDX-License-Identifier: Apache-2.0
//
// The line that a process is on, by the method list that its line has. It is the
// controlling terminal, whatever the standard descriptors are.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/terminal.h"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr cerrno kNoTerminal = 0x22570e00u;

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// A terminal that controls no process.
int free_terminal() {
    int master = -1;
    int slave = -1;
    EXPECT_EQ(0, openpty(&master, &slave, nullptr, nullptr, nullptr));
    return slave;  // the master stays open to the end of the process
}

struct OwnLine : testing::Test {
    TempDir dir;

    // "own" for the controlling terminal, "other" for any other line, else the code.
    static std::string lookup() {
        char *list = nullptr;
        errno = ENOTTY;
        const cerrno rc = find_method_for_line(0, &list);
        EXPECT_EQ(ENOTTY, errno);
        const std::string found = list != nullptr ? list : "code " + std::to_string(rc);
        free(list);
        return found;
    }
    // The result of a login that first changes its descriptors.
    std::string on_terminal(const std::function<void()> &change) const {
        TerminalProcess login([&] {
            const std::string own = std::string(ttyname(0)).substr(std::strlen("/dev/"));
            const std::string rows = dir.write("lines.conf", own + " * own\n* * other\n", 0644);
            setenv("AAA_LINES_CONF", rows.c_str(), 1);
            change();
            const std::size_t before = open_descriptors();
            const std::string found = lookup();
            return open_descriptors() == before ? found : found + ", and a descriptor is left open";
        });
        return login.report();
    }
};

}  // namespace

TEST_F(OwnLine, IsTheControllingTerminal) {
    EXPECT_EQ("own", on_terminal([] {}));
}

TEST_F(OwnLine, IsFoundWithoutTheStandardDescriptors) {
    EXPECT_EQ("own", on_terminal([] {
                  for (int fd = 0; fd < 3; ++fd) {
                      close(fd);
                  }
              }));
}

// A program may have been started with its input and output on another terminal.
TEST_F(OwnLine, IsNotTheTerminalOfTheStandardDescriptors) {
    EXPECT_EQ("own", on_terminal([] {
                  const int other = free_terminal();
                  for (int fd = 0; fd < 3; ++fd) {
                      EXPECT_EQ(fd, dup2(other, fd));
                  }
              }));
}

TEST_F(OwnLine, IsNoneWithoutAControllingTerminal) {
    const std::string path = dir.write("lines.conf", "* * a\n", 0644);
    for (const bool terminal_on_input : {false, true}) {
        TerminalProcess daemon(
            [&] {
                setenv("AAA_LINES_CONF", path.c_str(), 1);
                if (terminal_on_input) {
                    EXPECT_EQ(0, dup2(free_terminal(), 0));
                }
                return lookup();
            },
            false);
        EXPECT_EQ("code " + std::to_string(kNoTerminal), daemon.report());
    }
}
