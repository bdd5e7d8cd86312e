/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_AVPAIR_H
#define AAA_AVPAIR_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct avpair_buffer avpair_buffer_t;

typedef struct avlist {
    uint32_t         reserved0; /* zero on creation; an unpacked list keeps the big-endian flat length here */
    uint8_t          marker;    /* byte 4: set by no list operation, compared by aaa_avpair_compare_lists */
    uint8_t          reserved5;
    uint16_t         av_cnt; /* live pairs; raw big-endian bytes after unpacking */
    avpair_buffer_t *avpair_first_buf;
    avpair_buffer_t *avpair_last_buf;
    char             av_name[31]; /* NUL-terminated, at most 30 characters */
    uint8_t          pad55;
} avlist;
/* sizeof(avlist) == 56 */

typedef struct avpair {
    avpair_type_t    av_type; /* AAA_ATTR_MAX marks a deleted pair */
    uint32_t         av_tag;
    avpair_val_len_t av_len;
    avpair_flags_t   av_flags;
    /* av_len value bytes follow at offset 16; the next pair starts 4-aligned after them */
} avpair_t;
/* sizeof(avpair_t) == 16 */

struct avpair_buffer {
    struct {
        avpair_buffer_t *prev;
        avpair_buffer_t *next;
        unsigned char   *free_mem; /* first unused byte, 4-aligned */
        uint32_t         buf_size; /* whole block, header included, multiple of 4, at least 512 */
        uint32_t         pad28;
    } hdr;
    /* pairs from byte 32 on */
};
/* sizeof(avpair_buffer_t) == 32 */

typedef struct avpair_mem_stats {
    uint32_t buf_cnt;
    uint32_t total_mem;
    uint32_t used_mem;
} avpair_mem_stats_t;
/* sizeof(avpair_mem_stats_t) == 12 */

typedef struct aaa_avpair_iterator {
    avpair_buffer_t *curr_buf;
    avpair_buffer_t *last_buf;
    avpair_t        *curr_avp;
} aaa_avpair_iterator_t;
/* sizeof(aaa_avpair_iterator_t) == 24 */

/* non-zero continues, zero stops */
typedef uint32_t (*aaa_avpair_list_callback_fn_t)(avpair_type_t type, avpair_flags_t flags, void *value,
                                                  uint32_t len, uint32_t tag, void *ctx);

/* one text line under a debug flag; the result is ignored */
typedef int (*aaa_line_printer_t)(uint32_t flag, const char *line);

AAA_API cerrno aaa_avpair_create_list(const char *name, avlist **out);
AAA_API void aaa_avpair_clear(avlist *list);
AAA_API void aaa_avpair_free_list(avlist *list);
AAA_API avpair_t *aaa_avpair_get_first_avpair_in_buf(avpair_buffer_t *buf);
AAA_API int aaa_avpair_is_deleted(const avpair_t *pair);
AAA_API cerrno aaa_avpair_add(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len, avlist *list);
AAA_API cerrno aaa_avpair_add_with_tag(uint32_t type, uint32_t flags, const void *value, uint32_t len, uint32_t tag, avlist *list);
AAA_API cerrno aaa_avpair_get_mem_usage(const avlist *list, avpair_mem_stats_t *stats);

AAA_API cerrno aaa_avpair_iterator_init(aaa_avpair_iterator_t *it, const avlist *list, avpair_t **pair);
AAA_API cerrno aaa_avpair_iterator_get_next(aaa_avpair_iterator_t *it, avpair_t **pair);
AAA_API avpair_t *aaa_avpair_get_adjacent(const avpair_t *pair);
AAA_API cerrno aaa_avpair_find_type(uint32_t type, avpair_flags_t *flags, void **value, uint32_t *len, uint32_t instance, const avlist *list);
AAA_API cerrno aaa_avpair_find_index(uint32_t index, uint32_t *type, avpair_flags_t *flags, void **value, uint32_t *tag, uint32_t *len, const avlist *list);
AAA_API cerrno aaa_avpair_delete_by_iterator(aaa_avpair_iterator_t *it, avlist *list);
AAA_API cerrno aaa_avpair_delete_by_type_instance(uint32_t type, uint32_t instance, avlist *list, avpair_flags_t *flags);
AAA_API cerrno aaa_avpair_delete_by_type_value(avpair_type_t findtype, void *value, avpair_val_len_t len, avlist *list, avpair_flags_t *flags);
AAA_API cerrno aaa_avpair_update_by_iterator(aaa_avpair_iterator_t *it, avpair_flags_t flags, const void *value, uint32_t tag, uint32_t len, avlist *list);
AAA_API cerrno aaa_avpair_update(uint32_t type, uint32_t flags, void *value, uint32_t tag, uint32_t len, uint32_t instance, avlist *list);

AAA_API cerrno aaa_avpair_pack_msg(const avlist *list, iov_t *iov, uint32_t *len);
AAA_API cerrno aaa_avpair_pack_msg_to_buf(avlist *list, char *buf, uint32_t *len);
AAA_API cerrno aaa_avpair_unpack_msg(avlist *list, char *msg);
AAA_API cerrno aaa_avpair_unpack_msg_2(avlist *list, char *msg, uint32_t len);
AAA_API cerrno aaa_avpair_unpack_msg_create(avlist **list, char *msg, uint32_t len);

AAA_API int aaa_avpair_compare_avpairs(const avpair_t *a, const avpair_t *b);
AAA_API int aaa_avpair_compare_lists(const avlist *a, const avlist *b);
AAA_API cerrno aaa_avpair_copy_list(const avlist *list, const char *name, avlist **copy_list);
AAA_API cerrno aaa_avpair_list_for_each(avlist *list, void *ctx, aaa_avpair_list_callback_fn_t fn);
AAA_API cerrno aaa_avpair_switch(avlist *a, avlist *b);
AAA_API cerrno aaa_avpair_update_list_from_list(const avlist *src, avlist *tgt);
AAA_API cerrno aaa_avpair_update_list_from_list_by_flags(const avlist *src, avlist *tgt, avpair_flags_t flags);
AAA_API cerrno aaa_avpair_add_from_list_by_flags(const avlist *src, avlist *dst, avpair_flags_t flags);
AAA_API cerrno aaa_avpair_list_concat(avlist *dst, const avlist *src);
AAA_API cerrno aaa_avpair_list_concat_with_replace(avlist *dst, const avlist *src);

AAA_API char *aaa_util_print_avlist(char *dst, uint32_t size, const char *prefix, const avlist *list);
AAA_API void aaa_avpair_print_list(const avlist *list, uint32_t flag, aaa_line_printer_t printer);
AAA_API void dump_buffer(uint32_t flag, const char *name, const unsigned char *buf, int len, int ascii);
AAA_API void dump_iovs(const char *name, const iov_t *iov, int count);
AAA_API void aaa_dump_pkt_buffer(const char *label, uint32_t flag, const unsigned char *buf, int len, aaa_line_printer_t printer);

#ifdef __cplusplus
}
#endif

#endif /* AAA_AVPAIR_H */
