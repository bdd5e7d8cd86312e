// SPDX-License-Identifier: Apache-2.0
//
// Tracing rules of the library. A trace whose arguments cost something (names,
// code texts, value bytes) is guarded by tracing(flag), so that a call costs
// one test while tracing is off; every other trace calls aaa_debug directly.
#pragma once

#include "aaa/alloc.h"
#include "platform/logging.h"

namespace aaautil {

[[nodiscard]] inline bool tracing(uint32_t flag) noexcept {
    return aaa_debugging(flag) != 0;
}

// The platform's formatter need not accept a null for "%s".
[[nodiscard]] inline const char *printable(const char *text) noexcept {
    return text != nullptr ? text : "(null)";
}

}  // namespace aaautil
