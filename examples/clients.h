/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_CLIENTS_H
#define EXAMPLES_CLIENTS_H

/*
 * The connections of the example server. No client can delay the others: no call on
 * a connection waits, and one message of each client is handled in turn. While the
 * table is full, new clients wait in the listener's queue, and clients that have sent
 * nothing for CLIENTS_SILENCE_MS are dropped.
 */

#include <poll.h>
#include <signal.h>
#include <stdint.h>

#include "aaa/transport.h"

#define CLIENTS_MAX        256  /* fewer when the process may have fewer descriptors */
#define CLIENTS_SILENCE_MS 2000 /* longer than a client needs from connect to request */

/* Slots 0 and 1 of the table are the listener and another descriptor of the server. */
enum { CLIENTS_LISTENER, CLIENTS_OTHER, CLIENTS_FIRST };

typedef struct clients {
    struct pollfd polled[CLIENTS_FIRST + CLIENTS_MAX];
    aaa_transport_t *connected[CLIENTS_FIRST + CLIENTS_MAX]; /* including the listener */
    int64_t heard[CLIENTS_FIRST + CLIENTS_MAX];              /* time of the last message or connection, ms */
    nfds_t count;                                            /* slots in use */
    nfds_t limit;                                            /* slots that may be in use */
    int64_t retry;                                           /* time before which nothing is accepted, ms */
} clients_t;

/* The caller keeps the listener; other is polled for reading, -1 for none. */
void clients_init(clients_t *clients, aaa_transport_t *listener, int other);

/* Drops silent clients when the table is full, then waits for events with the
 * given signal mask: 1, or 0 when a signal came instead. */
int clients_wait(clients_t *clients, const sigset_t *let_in);

/* Accepts waiting clients until the table is full. */
void clients_accept(clients_t *clients);

/* Records that a client has sent a message. */
void clients_heard(clients_t *clients, nfds_t slot);

/* Closes a client's connection; the last client moves to its slot. */
void clients_drop(clients_t *clients, nfds_t slot);

/* Closes all connections of clients. */
void clients_drop_all(clients_t *clients);

#endif /* EXAMPLES_CLIENTS_H */
