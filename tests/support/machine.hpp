// SPDX-License-Identifier: Apache-2.0
//
// What a test needs of the machine. A test that cannot have it skips itself. In CI that must
// not go unnoticed: AAA_TESTS_MACHINE_HAS names what the machine of CI has ("root mounts"),
// and a test that misses it there fails. The others are counted: each writes a line to the file
// that AAA_TESTS_SKIPPED names.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string>

inline bool machine_should_have(const std::string &need) {
    const char *all = std::getenv("AAA_TESTS_MACHINE_HAS");
    std::istringstream words(all != nullptr ? all : "");
    for (std::string word; words >> word;) {
        if (word == need) {
            return true;
        }
    }
    return false;
}

// "need, program, test, why", with tabs between. One write, so that lines of several programs
// do not mix. Every user may be the one who runs the test.
inline void record_skip(const std::string &need, const std::string &why) {
    const char *file = std::getenv("AAA_TESTS_SKIPPED");
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    if (file == nullptr || test == nullptr) {
        return;
    }
    const std::string line = need + "\t" + program_invocation_short_name + "\t" + test->test_suite_name() +
                             "." + test->name() + "\t" + why + "\n";
    const int fd = open(file, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        ADD_FAILURE() << "cannot write " << file << ", which AAA_TESTS_SKIPPED names";
    }
    if (fd >= 0) {
        close(fd);
    }
}

// need: a word of the variable. Leaves the test's function.
#define SKIP_WITHOUT(need, has, why)                                                                     \
    do {                                                                                                 \
        if (!(has)) {                                                                                    \
            if (machine_should_have(need)) {                                                             \
                FAIL() << (why) << ", and AAA_TESTS_MACHINE_HAS says that this machine has \"" << (need) \
                       << "\": give the tests what they need, or take the word out of the variable";     \
            }                                                                                            \
            record_skip(need, why);                                                                      \
            GTEST_SKIP() << (why);                                                                       \
        }                                                                                                \
    } while (false)

#define SKIP_WITHOUT_ROOT(why) SKIP_WITHOUT("root", geteuid() == 0, why)
