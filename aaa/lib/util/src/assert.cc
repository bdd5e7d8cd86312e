// SPDX-License-Identifier: Apache-2.0
//
// The report of a broken list invariant.

#include "internal/assert.hpp"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace aaautil {

void assertion_failed(const char *expression, const char *path, int line, const char *prototype) noexcept {
    // One write, so that the reports of two processes on one terminal do not mix.
    char text[1024];
    const int n = std::snprintf(text, sizeof text, "%s:%d: %s: Assertion `%s' failed.\n", path, line,
                                prototype, expression);
    if (n > 0) {
        const std::size_t len =
            static_cast<std::size_t>(n) < sizeof text ? static_cast<std::size_t>(n) : sizeof text - 1;
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, len);
    }
    std::abort();
}

}  // namespace aaautil
