/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_BOUNDED_H
#define PLATFORM_BOUNDED_H

/**
 * @file
 * @brief Bounded copies, fills and comparisons.
 *
 * They read and write only within the
 * sizes they are given, keep no state, and may be called from any thread and
 * from a signal handler. Sizes are in bytes. A size of more than half the
 * address space is refused: it is a negative number converted to size_t.
 */

#include "platform/export.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Copies n bytes, all of them or none.
 *
 * A refused copy leaves zeros in the destination, never part of the source: the
 * library copies key material with it (450 and 128 bytes).
 *
 * @param[out] dst      destination, dst_size bytes
 * @param[in]  dst_size size of the destination
 * @param[in]  src      source; may be null when n is 0
 * @param[in]  n        bytes to copy; the two ranges must not overlap
 *
 * @return
 * - 0: copied; bytes of dst from n on are untouched
 * - an errno value: dst or src is null, n exceeds dst_size, or the ranges overlap. dst_size bytes of dst are
 *   then zero, unless dst is null or dst_size is refused
 */
PLATFORM_API int memcpy_s(void *dst, size_t dst_size, const void *src, size_t n);

/**
 * Fills n bytes; the fill is never optimised away.
 *
 * The library hands the same number as dst_size and n, so that a host whose
 * function takes only (dst, n, c) in registers would do as well.
 *
 * @param[out] dst      destination, dst_size bytes
 * @param[in]  dst_size size of the destination
 * @param[in]  c        value of each byte
 * @param[in]  n        bytes to fill
 *
 * @return
 * - 0: filled
 * - an errno value: dst is null or dst_size refused (nothing written), or n exceeds dst_size (dst_size bytes
 *   are filled)
 */
PLATFORM_API int memset_s(void *dst, size_t dst_size, int c, size_t n);

/**
 * Compares two texts, at most dst_size bytes of them.
 *
 * Called with a protocol's name, 7 and "radius": the limit covers the NUL, so
 * "radius2" is not equal.
 *
 * @param[out] dst       first text, may be null
 * @param[in]  dst_size  limit of the comparison
 * @param[in]  src       second text, may be null
 * @param[out] indicator 0 when the texts are equal, else less or greater than 0
 *
 * @return
 * - 0: compared
 * - an errno value: a text or indicator is null, or dst_size is 0 or refused. *indicator is then not 0, so
 *   that a caller that tests it alone does not take the texts for equal
 */
PLATFORM_API int strcmp_s(const char *dst, size_t dst_size, const char *src, int *indicator);

/**
 * Copies a text of at most limit bytes, its NUL included, and always
 * terminates.
 *
 * Called with 255 into the 256-byte name of an allocation record, and with 32
 * into 32-byte terminal names. Bytes after the NUL are untouched.
 *
 * @param[out] dst   destination, limit bytes; may be null (nothing is done)
 * @param[in]  src   source, read up to its NUL or limit - 1 bytes; null = empty text; may overlap dst
 * @param[in]  limit size to keep to; 0 = nothing is done
 *
 * @return dst
 */
PLATFORM_API char *sstrncpy(char *dst, const char *src, size_t limit);

/**
 * Copies n bytes, but never more than the destination holds.
 *
 * Called with a stored value, its length and a four-byte integer as the
 * destination: of a longer value the first four bytes are taken.
 *
 * @param[out] dst      destination, dst_size bytes; may be null (nothing is done)
 * @param[in]  src      source, n bytes; may be null (nothing is done); may overlap
 * @param[in]  n        bytes of the source
 * @param[in]  dst_size size of the destination
 *
 * @return dst; bytes after the copied ones are untouched
 */
PLATFORM_API void *__memcpy_to_buf(void *dst, const void *src, size_t n, size_t dst_size);

/**
 * Copies at most n characters of a text, never more than the destination holds,
 * and always terminates. Not called by the library at present.
 *
 * @param[out] dst      destination, dst_size bytes; may be null (nothing is done)
 * @param[in]  src      source; null = empty text; may overlap
 * @param[in]  n        most characters to copy
 * @param[in]  dst_size size of the destination, the NUL included; 0 = nothing is done
 *
 * @return dst
 */
PLATFORM_API char *__strncpy_to_buf(char *dst, const char *src, size_t n, size_t dst_size);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_BOUNDED_H */
