/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_TRANSPORT_H
#define EXAMPLES_TRANSPORT_H

/*
 * The sending layer that libaaautil leaves to its users: AAA messages over a
 * Unix socket that keeps message boundaries (SOCK_SEQPACKET).
 *
 * A classic message is sent as the io-vector that a compose routine returned;
 * this layer fills the header record's transport fields (bytes 0 to 19 and 24
 * to 31). A session packet is followed by its attribute list in packed form:
 * a list handle means something only inside one process, so between processes
 * the list travels along and the handle in the packet merely names it.
 */

#include <stddef.h>
#include <stdint.h>

#include "aaa/aaautil.h"

#define TRANSPORT_MAGIC \
    0x4d414141u              /* "AAAM", first word of a classic message; a session packet starts with 16 */
#define TRANSPORT_MAX 65536u /* longest message, bytes */

enum transport_kind { TRANSPORT_CLASSIC, TRANSPORT_SESSION, TRANSPORT_GARBAGE };

/* A received message. */
typedef struct transport_msg {
    size_t len;
    union {
        unsigned char bytes[TRANSPORT_MAX];
        uint64_t align;
    } u;
} transport_msg_t;

/* All return a descriptor, or -1 with errno set. */
int transport_listen(const char *path);
int transport_connect(const char *path);

/* As transport_connect(), for whom patience has an end: connecting, each send
 * and each receive give up with EAGAIN after that many seconds (0: never). */
int transport_connect_patient(const char *path, unsigned seconds);

/* Sends a classic message, header record first. 0, or -1 with errno set. */
int transport_send(int fd, const iov_t *iov, uint32_t count);

/* Sends a session packet of the given size and, when it names a list, that
 * list in packed form; frees the list. 0, or -1 with errno set. */
int transport_send_packet(int fd, void *packet, size_t size);

/* Receives one message: 1, 0 when the peer has closed, -1 with errno set
 * (EMSGSIZE for a message longer than TRANSPORT_MAX). */
int transport_receive(int fd, transport_msg_t *msg);

/* What kind of message it is, judged by its first bytes and its length. */
enum transport_kind transport_kind(const transport_msg_t *msg);

/* Size of the response packet to a session request of the given type, bytes. */
size_t transport_response_size(uint32_t type);

/* Makes a list of the packed bytes at the given offset of a message. Null
 * with the reason in *rc when they are malformed; the caller frees the list. */
avlist *transport_unpack(const transport_msg_t *msg, size_t offset, cerrno *rc);

/* The number in the first attribute of the type; 0 when there is none, or one of another size. */
uint32_t transport_number(const avlist *list, uint32_t type);

/* Prints a list, one pair a line, bytes that are not printable escaped. */
void transport_print_list(const char *heading, const avlist *list);

#endif /* EXAMPLES_TRANSPORT_H */
