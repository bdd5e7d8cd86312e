/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_TYPES_H
#define AAA_TYPES_H

#include <stdint.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t cerrno;           /* result code, 0 = success */
typedef uint32_t avpair_type_t;    /* attribute type, index into aaa_table */
typedef uint32_t avpair_flags_t;   /* per-pair flag bits */
typedef uint32_t avpair_val_len_t; /* value length in bytes */

#define MEMORY_DEF_ALIGNMENT 4

typedef struct aaa_iov {
    void    *base;
    uint64_t len;
} iov_t;
/* sizeof(iov_t) == 16 */

#ifdef __cplusplus
}
#endif

#endif /* AAA_TYPES_H */
