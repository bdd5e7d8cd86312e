/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAAPY_LISTS_H
#define AAAPY_LISTS_H

/*
 * Whole lists in one call: a call from Python costs more than reading a pair.
 *
 * A walk gives two blocks: for each pair the four words type, tag, flags and length of the
 * value, and the values one after the other, without padding. Numbers are in host order.
 */

#include <stddef.h>
#include <stdint.h>

#include "aaa/avpair.h"

/* What a list holds: live pairs, and bytes of their values. */
typedef struct aaapy_size {
    uint32_t pairs;
    uint32_t bytes;
} aaapy_size_t;

/* Checks and unpacks a packed list of unknown origin into blocks of `head_room` pairs and `value_room`
 * bytes. AAA_ERR_BUFFER_TOO_SMALL when these are too small: `size` is then what is needed. The name has 31
 * bytes of room. On other failures size is zero. */
cerrno aaapy_decode(const char *message, size_t length, char *name, uint32_t *heads, uint32_t head_room,
                    char *values, uint32_t value_room, aaapy_size_t *size);

/* The same walk over a list of the library. */
cerrno aaapy_walk(const avlist *list, uint32_t *heads, uint32_t head_room, char *values, uint32_t value_room,
                  aaapy_size_t *size);

/* Makes a list of the library from the blocks. AAA_ERR_INVALID_TYPE for the type that marks deleted pairs,
 * AAA_ERR_AVPAIR_PROCESSING for more pairs than a receiver accepts, AAA_ERR_INVALID_ARG when the lengths are
 * not those of the block. The heads may have any alignment. The list is null on failure. */
cerrno aaapy_make(const char *name, const char *heads, uint32_t pairs, const char *values, size_t bytes,
                  avlist **list);

/* Makes a list and packs it. `length` is the room, and then the length of the message. */
cerrno aaapy_encode(const char *name, const char *heads, uint32_t pairs, const char *values, size_t bytes,
                    char *message, uint32_t *length);

/* Packs a list that is well-formed and fits; it is spent afterwards, except after
 * AAA_ERR_BUFFER_TOO_SMALL, when `length` is the room that is needed. */
cerrno aaapy_pack(avlist *list, char *message, uint32_t *length);

/* Overwrites bytes that may hold a password. */
void aaapy_wipe(void *bytes, size_t length);

#endif /* AAAPY_LISTS_H */
