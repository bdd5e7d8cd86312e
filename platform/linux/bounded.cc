// SPDX-License-Identifier: Apache-2.0
//
// Bounded copies and comparisons. They do not read or write past the given sizes;
// a refused copy leaves zeros, never a part of the source.

#include "platform/bounded.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

// A size above this is a negative number converted to size_t.
constexpr size_t kSizeLimit = SIZE_MAX >> 1;

bool overlap(const void *a, const void *b, size_t n) {
    const auto x = reinterpret_cast<uintptr_t>(a);
    const auto y = reinterpret_cast<uintptr_t>(b);
    return x < y ? y - x < n : x - y < n;
}

// Copies len characters and terminates them; the ranges may overlap.
char *copy_text(char *dst, const char *src, size_t len) {
    std::memmove(dst, src, len);
    dst[len] = '\0';
    return dst;
}

}  // namespace

extern "C" {

int memcpy_s(void *dst, size_t dst_size, const void *src, size_t n) {
    if (dst == nullptr || dst_size > kSizeLimit) {
        return EINVAL;
    }
    if (n > dst_size || (n != 0 && (src == nullptr || overlap(dst, src, n)))) {
        std::memset(dst, 0, dst_size);
        return n > dst_size ? ERANGE : EINVAL;
    }
    if (n != 0) {
        std::memcpy(dst, src, n);
    }
    return 0;
}

int memset_s(void *dst, size_t dst_size, int c, size_t n) {
    if (dst == nullptr || dst_size > kSizeLimit) {
        return EINVAL;
    }
    std::memset(dst, c, n < dst_size ? n : dst_size);
    return n > dst_size ? ERANGE : 0;
}

int strcmp_s(const char *dst, size_t dst_size, const char *src, int *indicator) {
    if (indicator == nullptr) {
        return EINVAL;
    }
    *indicator = 1;
    if (dst == nullptr || src == nullptr || dst_size == 0 || dst_size > kSizeLimit) {
        return EINVAL;
    }
    *indicator = std::strncmp(dst, src, dst_size);
    return 0;
}

char *sstrncpy(char *dst, const char *src, size_t limit) {
    if (dst == nullptr || limit == 0) {
        return dst;
    }
    return src == nullptr ? copy_text(dst, "", 0) : copy_text(dst, src, strnlen(src, limit - 1));
}

void *__memcpy_to_buf(void *dst, const void *src, size_t n, size_t dst_size) {
    if (dst != nullptr && src != nullptr) {
        std::memmove(dst, src, n < dst_size ? n : dst_size);
    }
    return dst;
}

char *__strncpy_to_buf(char *dst, const char *src, size_t n, size_t dst_size) {
    if (dst == nullptr || dst_size == 0) {
        return dst;
    }
    const size_t limit = n < dst_size ? n : dst_size - 1;
    return src == nullptr ? copy_text(dst, "", 0) : copy_text(dst, src, strnlen(src, limit));
}

}  // extern "C"
