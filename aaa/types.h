/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_TYPES_H
#define AAA_TYPES_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#if !defined(__cplusplus) && (!defined(__STDC_VERSION__) || __STDC_VERSION__ < 201112L)
#error "The headers of libaaautil need C11: compile with -std=c11 or later, or as C++"
/* Otherwise each check of a layout would be one more error. */
#undef static_assert
#define static_assert(condition, text) extern int aaa_headers_need_c11
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief The small types that all headers share.
 */

/** Result code: 0 is success, others are in aaa/result_codes.h or belong to a platform service. */
typedef uint32_t cerrno;
/** Attribute type, index into aaa_table of aaa/dictionary.h. */
typedef uint32_t avpair_type_t;
/** Flag bits of a pair. */
typedef uint32_t avpair_flags_t;
/** Length of a value in bytes. */
typedef uint32_t avpair_val_len_t;

/** Alignment of the pairs inside the buffers of a list, and of packed pairs, in bytes. */
#define MEMORY_DEF_ALIGNMENT 4

/** Element of an io-vector, laid out as POSIX's struct iovec where pointers have 64 bits. */
typedef struct aaa_iov {
    void *base;   /**< the bytes */
    uint64_t len; /**< how many */
} iov_t;
static_assert(sizeof(iov_t) == 16, "layout of iov_t");
static_assert(offsetof(iov_t, base) == 0, "layout of iov_t");
static_assert(offsetof(iov_t, len) == 8, "layout of iov_t");

#ifdef __cplusplus
}
#endif

#endif /* AAA_TYPES_H */
