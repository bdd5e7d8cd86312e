// SPDX-License-Identifier: Apache-2.0
//
// Tracing rules of the library. A trace whose arguments cost something (names,
// code texts, value bytes) is guarded by tracing(flag), so that a call costs
// one test while tracing is off; every other trace calls aaa_debug directly.
// The list paths of every pair are guarded by may_trace(), and a separate function
// calls tracing(): an inlined call costs registers even when it is not made.
#pragma once

#include <bit>

#include "aaa/debug_flags.h"
#include "platform/logging.h"

namespace aaautil {

// The word that the platform answers from, or one with all flags on when it
// has none and must be asked. Changes once, while the library is being loaded.
[[gnu::visibility("hidden")]] extern const uint32_t *tracing_word;

// False: the flag is off. True: ask tracing(). Reads one byte of the word: from a
// whole word the compiler derives the 0 that the caller returns later, and keeps
// a register for it.
[[nodiscard]] inline bool may_trace(uint32_t flag) noexcept {
    constexpr uint32_t kBits = 8;
    const uint32_t byte = flag / kBits;
    if (byte >= sizeof *tracing_word) {
        return true;
    }
    const auto *const bytes = reinterpret_cast<const unsigned char *>(tracing_word);
    const uint32_t at = std::endian::native == std::endian::little ? byte : sizeof *tracing_word - 1 - byte;
    return (__atomic_load_n(bytes + at, __ATOMIC_RELAXED) & 1u << flag % kBits) != 0;
}

[[nodiscard]] inline bool tracing(uint32_t flag) noexcept {
    return may_trace(flag) && aaa_debugging(flag) != 0;
}

// The platform's formatter need not accept a null for "%s".
[[nodiscard]] inline const char *printable(const char *text) noexcept {
    return text != nullptr ? text : "(null)";
}

}  // namespace aaautil
