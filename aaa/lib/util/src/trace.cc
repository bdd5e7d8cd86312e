// SPDX-License-Identifier: Apache-2.0
//
// The word of tracing flags, found while the library is loaded.

#include "internal/trace.hpp"

#pragma weak aaa_debug_word  // optional for a host

namespace aaautil {

namespace {

constexpr uint32_t kAskForEach = ~uint32_t{0};

// Until then the host is asked for every flag: load hooks of other objects may use lists before.
[[gnu::constructor]] void find_tracing_word() noexcept {
    const uint32_t *const word = aaa_debug_word != nullptr ? aaa_debug_word(aaa_debugging) : nullptr;
    if (word != nullptr) {
        tracing_word = word;
    }
}

}  // namespace

constinit const uint32_t *tracing_word = &kAskForEach;

}  // namespace aaautil
