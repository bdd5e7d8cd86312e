// SPDX-License-Identifier: Apache-2.0
//
// The checks that every list operation runs before it looks at a list, and
// the small reads that go with them. A list that fails one of them stops the
// process: walking on would follow wild addresses.
#pragma once

#include <cstddef>
#include <cstdint>

#include "aaa/avpair.h"
#include "internal/assert.hpp"

namespace aaautil {

[[nodiscard]] inline bool is_aligned(const void *p, std::uintptr_t alignment) noexcept {
    return (reinterpret_cast<std::uintptr_t>(p) & (alignment - 1)) == 0;
}

// Count and buffer pointers have to agree: both pointers null in an empty
// list, both set in any other.
[[nodiscard]] inline bool aaa_is_list_empty(const avlist *list) noexcept {
    if (list->av_cnt == 0) {
        AAA_ASSERT_AT(list->avpair_first_buf == nullptr, "list->avpair_first_buf == NULL", kAvpairHeader);
        AAA_ASSERT_AT(list->avpair_last_buf == nullptr, "list->avpair_last_buf == NULL", kAvpairHeader);
        return true;
    }
    AAA_ASSERT_AT(list->avpair_first_buf != nullptr, "list->avpair_first_buf != NULL", kAvpairHeader);
    AAA_ASSERT_AT(list->avpair_last_buf != nullptr, "list->avpair_last_buf != NULL", kAvpairHeader);
    return false;
}

// Bytes between the last pair of the last buffer and the buffer's end.
[[nodiscard]] inline std::size_t aaa_get_free_mem(const avlist *list) noexcept {
    const avpair_buffer_t *last_buf = list->avpair_last_buf;
    if (last_buf == nullptr) {
        AAA_ASSERT_AT(list->avpair_first_buf == nullptr, "list->avpair_first_buf == NULL", kAvpairHeader);
        return 0;
    }
    AAA_ASSERT_AT(list->av_cnt > 0, "list->av_cnt > 0", kAvpairHeader);
    AAA_ASSERT_AT(last_buf->hdr.free_mem != nullptr, "last_buf->hdr.free_mem != NULL", kAvpairHeader);
    // Addresses, not pointers: a free_mem outside the buffer wraps to a huge
    // number, which the next check catches.
    const std::size_t free_mem = reinterpret_cast<std::uintptr_t>(last_buf) + last_buf->hdr.buf_size -
                                 reinterpret_cast<std::uintptr_t>(last_buf->hdr.free_mem);
    AAA_ASSERT_AT(free_mem <= last_buf->hdr.buf_size - sizeof(last_buf->hdr),
                  "free_mem <= last_buf->hdr.buf_size - sizeof(last_buf->hdr)", kAvpairHeader);
    return free_mem;
}

// Value bytes of a pair. They are in a list's buffer, which is never constant.
[[nodiscard]] inline unsigned char *aaa_get_avpair_value_ptr(const avpair_t *pair) noexcept {
    return reinterpret_cast<unsigned char *>(const_cast<avpair_t *>(pair)) + sizeof *pair;
}

}  // namespace aaautil
