// SPDX-License-Identifier: Apache-2.0
//
// Where the flags of tracing stand.

#include "internal/trace.hpp"

#pragma weak aaa_debug_word  // a host may do without it

namespace aaautil {

namespace {

constexpr uint32_t kAskForEach = ~uint32_t{0};

// Until then every flag is asked for: load hooks of others may use lists before.
[[gnu::constructor]] void find_tracing_word() noexcept {
    const uint32_t *const word = aaa_debug_word != nullptr ? aaa_debug_word(aaa_debugging) : nullptr;
    if (word != nullptr) {
        tracing_word = word;
    }
}

}  // namespace

constinit const uint32_t *tracing_word = &kAskForEach;

}  // namespace aaautil
