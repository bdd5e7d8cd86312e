// SPDX-License-Identifier: Apache-2.0
//
// What a test needs of the machine. A test that cannot have it skips itself. In CI that must
// not go unnoticed: AAA_TESTS_MACHINE_HAS names what the machine of CI has ("root mounts"),
// and a test that misses it there fails.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

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

// need: a word of the variable. Leaves the test's function.
#define SKIP_WITHOUT(need, has, why)                                                                     \
    do {                                                                                                 \
        if (!(has)) {                                                                                    \
            if (machine_should_have(need)) {                                                             \
                FAIL() << (why) << ", and AAA_TESTS_MACHINE_HAS says that this machine has \"" << (need) \
                       << "\": give the tests what they need, or take the word out of the variable";     \
            }                                                                                            \
            GTEST_SKIP() << (why);                                                                       \
        }                                                                                                \
    } while (false)

#define SKIP_WITHOUT_ROOT(why) SKIP_WITHOUT("root", geteuid() == 0, why)
