/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_ALLOC_H
#define AAA_ALLOC_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 24-byte queue head of the platform's queue facility */
typedef struct aaa_queue {
    void    *head;    /* first record (linked through its first pointer) or null */
    void    *tail;    /* last record or null */
    uint32_t count;
    uint32_t maximum; /* queue_init's second argument, 0 = no limit */
} aaa_queue_t;
/* sizeof(aaa_queue_t) == 24 */

typedef struct aaa_malloc_rec { /* one per live allocation, 280 bytes */
    void    *link;    /* queue link, 0 when made */
    void    *address;
    uint32_t size;
    uint32_t line;
    char     name[256]; /* sstrncpy with the limit 255 */
} aaa_malloc_rec_t;
/* sizeof(aaa_malloc_rec_t) == 280 */

/* debug flags of aaa_debug()/aaa_debugging(); 4 and 7 are declared unused (but flag 7 is used by one reply dump) */
enum aaa_debug_flag {
    AAA_DBG_LIFECYCLE = 0, AAA_DBG_REQUEST = 1, AAA_DBG_MESSAGE = 2, AAA_DBG_AUTHOR_DATA = 3,
    AAA_DBG_LINES_SESSION = 5, AAA_DBG_SERVER_GROUP = 6, AAA_DBG_AVLIST = 8, AAA_DBG_MALLOC = 9,
    AAA_DBG_IOV_DUMP = 10
};

AAA_API extern aaa_queue_t malloc_queue;
AAA_API void *aaa_util_malloc(const char *name, uint32_t line, uint32_t size);
AAA_API void *aaa_util_realloc(const char *name, uint32_t line, void *ptr, uint32_t size);
AAA_API void *aaa_util_calloc(const char *name, uint32_t line, uint32_t count, uint32_t size);
AAA_API char *aaa_util_strdup(const char *name, uint32_t line, const char *str);
AAA_API void aaa_util_free(const char *name, uint32_t line, void *ptr);
AAA_API aaa_queue_t *get_malloc_data(void); /* returns &malloc_queue */

#ifdef __cplusplus
}
#endif

#endif /* AAA_ALLOC_H */
