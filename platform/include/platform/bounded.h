/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_BOUNDED_H
#define PLATFORM_BOUNDED_H

#include <stddef.h>
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Copies n bytes when n <= dst_size, otherwise fails (non-zero) and zeroes dst. Used: RSA attributes 86 (450)
 * and 88 (128). */
PLATFORM_API int memcpy_s(void *dst, size_t dst_size, const void *src, size_t n);

/* Fills n bytes with c. The four-argument form also works when the platform's function takes three
 * (dst, n, c): hand the same number as size and n. */
PLATFORM_API int memset_s(void *dst, size_t dst_size, int c, size_t n);

/* Compares at most dst_size bytes; 0 = arguments valid, the difference in *indicator. Used: protocol name
 * against "radius" with the limit 7; must tolerate a null string (non-zero result, not equal). */
PLATFORM_API int strcmp_s(const char *dst, size_t dst_size, const char *src, int *indicator);

/* Copies at most limit bytes, NUL included, always terminates. Used with 255 into 256 bytes (allocation
 * records) and with 32 into 32 bytes (terminal names). */
PLATFORM_API char *sstrncpy(char *dst, const char *src, size_t limit);

/* Copies n bytes into a buffer of dst_size bytes, never more than dst_size. Used with a 4-byte result. */
PLATFORM_API void *__memcpy_to_buf(void *dst, const void *src, size_t n, size_t dst_size);

/* Copies text into a buffer of dst_size bytes, never more, always terminated.
 * Not called at present. */
PLATFORM_API char *__strncpy_to_buf(char *dst, const char *src, size_t n, size_t dst_size);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_BOUNDED_H */
