// SPDX-License-Identifier: Apache-2.0
//
// The trace lines of list storage and lookup, kept away from the paths that
// run while tracing is off. Callers have tested debug flag 8.
#pragma once

#include <cstddef>
#include <cstdint>

#include "aaa/avpair.h"

namespace aaautil {

[[gnu::cold]] void trace_added(uint32_t type, const void *value, uint32_t len, cerrno code) noexcept;
[[gnu::cold]] void trace_added_with_tag(uint32_t type, const void *value, uint32_t len, cerrno code) noexcept;
[[gnu::cold]] void trace_updating(uint32_t type, const void *value, uint32_t len) noexcept;
[[gnu::cold]] void trace_update_failed(uint32_t type, uint32_t instance, cerrno code) noexcept;
[[gnu::cold]] void trace_not_found(uint32_t type, cerrno code) noexcept;

// The value of a pair in a list, for an operation that may trace it; stored is
// the number of bytes at its address that the list holds. A pair without bytes at
// the end of its buffer has a value address whose page need not be mapped; four
// zero bytes are given instead. The value is only read.
[[nodiscard]] void *traceable_value(void *value, std::size_t stored) noexcept;

// aaa_avpair_find_index() for a caller that appends the pair: its value may be traced.
cerrno find_index_traceable(uint32_t index, const avlist *list, avpair_t *pair, void **value) noexcept;

// with_value says whether the value was asked for; flags and len are 0 unless asked for.
[[gnu::cold]] void trace_found(const avpair_t &pair, bool with_value, uint32_t flags, uint32_t len) noexcept;

}  // namespace aaautil
