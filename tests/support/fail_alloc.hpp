// SPDX-License-Identifier: Apache-2.0
//
// Allocations that fail on demand. Inside the armed region of a FailAlloc the
// k-th malloc, calloc, realloc, strdup or strndup of this thread returns null
// with errno ENOMEM, called by the library or by libc on its behalf.
//
//   fake::sweep_allocations([&](fake::FailAlloc &fail) {
//       const cerrno rc = fail.run([&] { return aaa_avpair_add(...); });
//       if (fail.fired()) EXPECT_EQ(rc, AAA_ERR_NOMEM); else EXPECT_EQ(rc, AAA_OK);
//       ... clean up, so that a leak would be seen ...
//   });
//
// Not available where a sanitizer does not let a program replace malloc
// (thread sanitizer; clang's address sanitizer): a sweep then skips its test.
#pragma once

#include <gtest/gtest.h>

#include <concepts>

#include "testkit/fail_alloc_region.hpp"

namespace fake {

// Calls operation(fail) with the first allocation failing, then the second,
// ... until a run in which none failed. The test fails when that takes more
// than `limit` runs, and when the operation allocates nothing at all.
template <std::invocable<FailAlloc &> F>
void sweep_allocations(F &&operation, FailAlloc::Mode mode = FailAlloc::Mode::once, unsigned limit = 10000) {
    if (!FailAlloc::available()) {
        GTEST_SKIP() << "this build's sanitizer does not let a program replace malloc";
    }
    for (unsigned k = 1; k <= limit; ++k) {
        SCOPED_TRACE(testing::Message() << "failing allocation " << k);
        FailAlloc fail(FailAlloc::Unarmed{}, k, mode);
        operation(fail);
        if (testing::Test::HasFatalFailure()) {
            return;
        }
        if (!fail.fired()) {
            EXPECT_GT(k, 1u) << "the swept operation allocates nothing";
            return;
        }
    }
    ADD_FAILURE() << "still failing after " << limit << " allocations";
}

}  // namespace fake
