// SPDX-License-Identifier: Apache-2.0
//
// Tracing rules of the library. A trace whose arguments cost something (names,
// code texts, value bytes) is guarded by tracing(flag), so that a call costs
// one test while tracing is off; every other trace calls aaa_debug directly.
// What lists do for every pair is guarded by may_trace(), and a function apart
// asks tracing(): a call in sight would cost registers even when not made.
#pragma once

#include "aaa/alloc.h"
#include "platform/logging.h"

namespace aaautil {

// The word that the platform answers from, or one with all flags on when it
// has none and must be asked. Changes once, while the library is being loaded.
[[gnu::visibility("hidden")]] extern const uint32_t *tracing_word;

// False: the flag is off. True: ask tracing().
[[nodiscard]] inline bool may_trace(uint32_t flag) noexcept {
    constexpr uint32_t kBits = 32;
    return flag >= kBits || (__atomic_load_n(tracing_word, __ATOMIC_RELAXED) >> flag & 1u) != 0;
}

[[nodiscard]] inline bool tracing(uint32_t flag) noexcept {
    return may_trace(flag) && aaa_debugging(flag) != 0;
}

// The platform's formatter need not accept a null for "%s".
[[nodiscard]] inline const char *printable(const char *text) noexcept {
    return text != nullptr ? text : "(null)";
}

}  // namespace aaautil
