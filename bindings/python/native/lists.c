/* SPDX-License-Identifier: Apache-2.0 */

#define _GNU_SOURCE
#include "bindings/python/native/lists.h"

#include <string.h>

#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"

#define HEAD_WORDS 4u

typedef struct walk {
    uint32_t *heads;
    uint32_t head_room;
    char *values;
    uint32_t value_room;
    aaapy_size_t *size;
} walk_t;

/* Goes on when there is no more room, to find out how much is needed. */
static void take(walk_t *walk, const avpair_t *pair) {
    const uint32_t pairs = walk->size->pairs;
    const uint32_t bytes = walk->size->bytes;
    if (pairs < walk->head_room) {
        uint32_t *head = walk->heads + (size_t)pairs * HEAD_WORDS;
        head[0] = pair->av_type;
        head[1] = pair->av_tag;
        head[2] = pair->av_flags;
        head[3] = pair->av_len;
    }
    if (pair->av_len != 0 && bytes <= walk->value_room && pair->av_len <= walk->value_room - bytes) {
        memcpy(walk->values + bytes, pair + 1, pair->av_len);
    }
    walk->size->pairs = pairs + 1;
    walk->size->bytes = bytes + pair->av_len;
}

cerrno aaapy_walk(const avlist *list, uint32_t *heads, uint32_t head_room, char *values, uint32_t value_room,
                  aaapy_size_t *size) {
    walk_t walk = {heads, head_room, values, value_room, size};
    aaa_avpair_iterator_t it;
    avpair_t *pair = NULL;
    memset(&it, 0, sizeof it);
    size->pairs = 0;
    size->bytes = 0;
    if (!aaa_avpair_list_is_sane(list)) {
        return AAA_ERR_AVPAIR_PROCESSING;
    }
    cerrno rc = aaa_avpair_iterator_init(&it, list, &pair);
    while (rc == AAA_OK) {
        take(&walk, pair);
        rc = aaa_avpair_iterator_get_next(&it, &pair);
    }
    if (rc != AAA_STATUS_END_OF_LIST) {
        return rc;
    }
    return size->pairs > head_room || size->bytes > value_room ? AAA_ERR_BUFFER_TOO_SMALL : AAA_OK;
}

cerrno aaapy_decode(const char *message, size_t length, char *name, uint32_t *heads, uint32_t head_room,
                    char *values, uint32_t value_room, aaapy_size_t *size) {
    avlist *list = NULL;
    size->pairs = 0;
    size->bytes = 0;
    cerrno rc = aaa_avpair_create_list(NULL, &list);
    if (rc == AAA_OK) {
        rc = aaa_avpair_unpack_msg_checked(list, message, length);
    }
    if (rc == AAA_OK) {
        memcpy(name, list->av_name, sizeof list->av_name);
        rc = aaapy_walk(list, heads, head_room, values, value_room, size);
    }
    aaa_avpair_free_list(list);
    return rc;
}

static cerrno add_pairs(const char *heads, uint32_t pairs, const char *values, size_t bytes, avlist *list) {
    size_t at = 0;
    for (uint32_t i = 0; i < pairs; i++) {
        uint32_t head[HEAD_WORDS];
        memcpy(head, heads + i * sizeof head, sizeof head);
        /* The library stops the process for this type. */
        if (head[0] == AAA_ATTR_MAX) {
            return AAA_ERR_INVALID_TYPE;
        }
        if (head[3] > bytes - at) {
            return AAA_ERR_INVALID_ARG;
        }
        /* A trace, when it is on, reads four bytes of a value of any length. */
        char few[4] = "";
        const char *value = values + at;
        if (head[3] < sizeof few) {
            memcpy(few, value, head[3]);
            value = few;
        }
        const cerrno rc = aaa_avpair_add(head[0], head[2], value, head[1], head[3], list);
        if (rc != AAA_OK) {
            return rc;
        }
        at += head[3];
    }
    return at == bytes ? AAA_OK : AAA_ERR_INVALID_ARG;
}

cerrno aaapy_make(const char *name, const char *heads, uint32_t pairs, const char *values, size_t bytes,
                  avlist **list) {
    *list = NULL;
    if (pairs > AAA_CHECKED_MAX_PAIRS) {
        return AAA_ERR_AVPAIR_PROCESSING;
    }
    cerrno rc = aaa_avpair_create_list(name, list);
    if (rc == AAA_OK) {
        rc = add_pairs(heads, pairs, values, bytes, *list);
    }
    if (rc != AAA_OK) {
        aaa_avpair_free_list(*list);
        *list = NULL;
    }
    return rc;
}

cerrno aaapy_encode(const char *name, const char *heads, uint32_t pairs, const char *values, size_t bytes,
                    char *message, uint32_t *length) {
    avlist *list = NULL;
    cerrno rc = aaapy_make(name, heads, pairs, values, bytes, &list);
    if (rc == AAA_OK) {
        rc = aaa_avpair_pack_msg_to_buf(list, message, length);
    }
    aaa_avpair_free_list(list);
    return rc;
}

cerrno aaapy_pack(avlist *list, char *message, uint32_t *length) {
    avpair_mem_stats_t stats;
    if (!aaa_avpair_list_is_sane(list)) {
        return AAA_ERR_AVPAIR_PROCESSING;
    }
    const cerrno rc = aaa_avpair_get_mem_usage(list, &stats);
    if (rc != AAA_OK) {
        return rc;
    }
    if (stats.used_mem > UINT32_MAX / 2 - sizeof(avlist)) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    const uint32_t needed = stats.used_mem + (uint32_t)sizeof(avlist);
    if (*length < needed) {
        *length = needed;
        return AAA_ERR_BUFFER_TOO_SMALL;
    }
    return aaa_avpair_pack_msg_to_buf(list, message, length);
}

void aaapy_wipe(void *bytes, size_t length) {
    explicit_bzero(bytes, length);
}
