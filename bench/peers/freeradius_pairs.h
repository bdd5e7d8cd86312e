/* SPDX-License-Identifier: Apache-2.0 */

/*
 * C functions around the FreeRADIUS library: its header cannot be included in C++, and
 * defines macros with common names.
 */
#ifndef PEERS_FREERADIUS_PAIRS_H
#define PEERS_FREERADIUS_PAIRS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct radius_packet;
struct value_pair;

/* Reads the file dictionary of a directory; 0 or -1. */
int freeradius_start(const char *directory);

/* A request without attributes; null when memory runs out. */
struct radius_packet *freeradius_request(void);

/* Append an attribute; 0 or -1. The tail is the request's last pair, null at first. */
int freeradius_add_number(struct radius_packet *request, struct value_pair **tail, uint8_t type,
                          uint32_t number);
int freeradius_add_text(struct radius_packet *request, struct value_pair **tail, uint8_t type,
                        const char *text, uint32_t len);

/* Encodes into out; the length, or -1. */
int freeradius_encode(struct radius_packet *request, char *out, uint32_t size);

/* Checks and decodes a message, which must stay valid until the packet is released; null when it is
 * invalid. */
struct radius_packet *freeradius_decode(char *message, uint32_t len);

struct freeradius_value {
    const char *text; /* null when the value is a number */
    uint32_t len;     /* 0 when the attribute is absent */
    uint32_t number;
};

struct freeradius_value freeradius_find(const struct radius_packet *packet, uint8_t type);

void freeradius_release(struct radius_packet *packet);

#ifdef __cplusplus
}
#endif

#endif
