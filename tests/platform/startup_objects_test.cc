// SPDX-License-Identifier: Apache-2.0
//
// Objects that were mapped with the program: no unload is reported for them.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdio>
#include <string>

#include "platform/node.h"
#include "support/sysdb.hpp"

namespace {

TEST(StartupObjects, PreloadedObjectIsNeverUnloaded) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library must be loaded before preloaded ones";
#endif
    const std::string command =
        std::string("LOADER_MODULE_REPORT=1 LD_PRELOAD='") + LOADER_MODULE + "' /bin/true";
    std::FILE *output = popen(command.c_str(), "r");
    char line[64] = {};
    EXPECT_NE(nullptr, fgets(line, sizeof line, output));
    EXPECT_STREQ("in dlclose: 0\n", line);
    EXPECT_EQ(0, pclose(output));
}

TEST(StartupObjects, ProgramItselfIsNotUnloading) {
    run_forked([] {
        _init_libc_globals();
        EXPECT_EQ(0, __in_dlclose());
    });
}

// The C library calls the function here, as for a library that the program needs.
TEST(StartupObjects, LibraryThatTheProgramNeedsIsNotUnloading) {
    run_forked([] {
        static pthread_once_t once = PTHREAD_ONCE_INIT;
        ASSERT_EQ(0, pthread_once(&once, _init_libc_globals));
        EXPECT_EQ(0, __in_dlclose());
    });
}

}  // namespace
