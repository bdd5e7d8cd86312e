// SPDX-License-Identifier: Apache-2.0
//
// How the library learns whether to trace. A host that shows its flags as a word is
// asked only about flags that are on or that the word has no place for. A host
// without a word is asked each time.

#include <gtest/gtest.h>

#include <cstdint>

#include "aaa/avpair.h"
#include "testkit/fake_platform.hpp"

namespace {

constexpr uint32_t kFlagsOfAWord = 32;

// How often the host is asked by a call that traces under the flag.
unsigned asked(uint32_t flag) {
    const unsigned before = fake::count("aaa_debugging");
    dump_buffer(flag, "one", reinterpret_cast<const unsigned char *>("x"), 1, 0);
    return fake::count("aaa_debugging") - before;
}

TEST(TraceFlags, OfTheWordAreAskedOnlyWhileTheyAreOn) {
    for (uint32_t flag = 0; flag < kFlagsOfAWord; ++flag) {
        SCOPED_TRACE(flag);
        EXPECT_EQ(asked(flag), fake::has_debug_word() ? 0u : 1u);
        fake::enable_tracing(flag);
        EXPECT_EQ(asked(flag), 1u);
        fake::enable_tracing(flag, false);
        EXPECT_EQ(asked(flag), fake::has_debug_word() ? 0u : 1u);
    }
}

TEST(TraceFlags, OutsideTheWordAreAlwaysAsked) {
    for (const uint32_t flag : {32u, 33u, 63u, 64u, 0x80000008u, 0xffffffffu}) {
        SCOPED_TRACE(flag);
        EXPECT_EQ(asked(flag), 1u);
    }
}

TEST(TraceFlags, AreEachIndependentOfTheOthers) {
    for (uint32_t on = 0; on < kFlagsOfAWord; ++on) {
        fake::disable_all_tracing();
        fake::enable_tracing(on);
        for (uint32_t flag = 0; flag < kFlagsOfAWord; ++flag) {
            EXPECT_EQ(asked(flag), flag == on || !fake::has_debug_word() ? 1u : 0u)
                << flag << " while " << on;
        }
    }
}

TEST(TraceFlags, AreTakenFromTheHostAtEachCall) {
    EXPECT_TRUE(fake::traces().empty());
    fake::enable_tracing(5);
    asked(5);
    EXPECT_EQ(fake::traces_of(5).size(), 2u);
    fake::enable_tracing(5, false);
    asked(5);
    EXPECT_EQ(fake::traces_of(5).size(), 2u);
}

}  // namespace
