/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_CLIENTS_H
#define EXAMPLES_CLIENTS_H

/*
 * The connections of the example server. Nothing that a client does, or leaves
 * undone, keeps the others waiting: every descriptor is non-blocking, one
 * message of each client is taken in turn, and newcomers wait in the listener's
 * queue while the table is full. Only then does silence matter: whoever has
 * said nothing for CLIENTS_SILENCE_MS makes room.
 */

#include <poll.h>
#include <signal.h>
#include <stdint.h>

#define CLIENTS_MAX        256  /* fewer when the process may have fewer descriptors */
#define CLIENTS_SILENCE_MS 2000 /* longer than a client needs from connect to request */

/* Slots 0 and 1 of the table are the listener and one descriptor of the server's own. */
enum { CLIENTS_LISTENER, CLIENTS_OTHER, CLIENTS_FIRST };

typedef struct clients {
    struct pollfd polled[CLIENTS_FIRST + CLIENTS_MAX];
    int64_t heard[CLIENTS_FIRST + CLIENTS_MAX]; /* when each spoke or came, ms */
    nfds_t count;                               /* slots in use */
    nfds_t limit;                               /* slots that may be in use */
    int64_t retry;                              /* no accepting before, ms */
} clients_t;

/* The listener becomes non-blocking; other is polled for reading, -1 for none. */
void clients_init(clients_t *clients, int listener, int other);

/* Makes room when there is none, then waits for events with the given signals
 * let in: 1, or 0 when a signal came instead. */
int clients_wait(clients_t *clients, const sigset_t *let_in);

/* Takes in who waits at the listener, as far as there is room. */
void clients_accept(clients_t *clients);

/* Notes that a client has spoken. */
void clients_heard(clients_t *clients, nfds_t slot);

/* Hangs up on a client; the last client takes its slot. */
void clients_drop(clients_t *clients, nfds_t slot);

/* Hangs up on everybody. */
void clients_drop_all(clients_t *clients);

#endif /* EXAMPLES_CLIENTS_H */
