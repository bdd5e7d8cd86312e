/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "clients.h"

#include <string.h>
#include <sys/resource.h>
#include <time.h>

#include "aaa/result_codes.h"

#define OWN_DESCRIPTORS 32  /* kept for files, the system database and the log */
#define RETRY_MS        100 /* until the next attempt when the system has no descriptors left */

static int64_t now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

static nfds_t client_limit(void) {
    struct rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur >= CLIENTS_MAX + OWN_DESCRIPTORS) {
        return CLIENTS_MAX;
    }
    return files.rlim_cur > OWN_DESCRIPTORS ? (nfds_t)(files.rlim_cur - OWN_DESCRIPTORS) : 1;
}

void clients_init(clients_t *clients, aaa_transport_t *listener, int other) {
    memset(clients, 0, sizeof *clients);
    clients->connected[CLIENTS_LISTENER] = listener;
    clients->polled[CLIENTS_LISTENER] =
        (struct pollfd){.fd = aaa_transport_descriptor(listener), .events = POLLIN};
    clients->polled[CLIENTS_OTHER] = (struct pollfd){.fd = other, .events = POLLIN};
    clients->count = CLIENTS_FIRST;
    clients->limit = CLIENTS_FIRST + client_limit();
}

/* Drops the silent clients. Returns the milliseconds until the next one is due. */
static int64_t drop_silent(clients_t *clients, int64_t now) {
    int64_t wait = CLIENTS_SILENCE_MS;
    for (nfds_t i = clients->count; i-- > CLIENTS_FIRST;) {
        int64_t left = clients->heard[i] + CLIENTS_SILENCE_MS - now;
        if (left <= 0) {
            clients_drop(clients, i);
        } else if (left < wait) {
            wait = left;
        }
    }
    return wait;
}

/* Milliseconds to wait before accepting; 0 when a client can be accepted now. */
static int64_t time_without_room(clients_t *clients) {
    int64_t now = now_ms();
    if (clients->count == clients->limit) {
        int64_t wait = drop_silent(clients, now);
        return clients->count == clients->limit ? wait : 0;
    }
    return clients->retry > now ? clients->retry - now : 0;
}

int clients_wait(clients_t *clients, const sigset_t *let_in) {
    int64_t ms = time_without_room(clients);
    struct timespec wait = {.tv_sec = ms / 1000, .tv_nsec = ms % 1000 * 1000000};
    clients->polled[CLIENTS_LISTENER].events = ms == 0 ? POLLIN : 0;
    return ppoll(clients->polled, clients->count, ms == 0 ? NULL : &wait, let_in) >= 0;
}

/* Accepts one client: 0 when none waits, or when descriptors or memory run out. */
static int accept_client(clients_t *clients) {
    aaa_transport_t *connection = NULL;
    cerrno rc = aaa_transport_create(&connection);
    if (rc == AAA_OK) {
        rc = aaa_transport_accept(clients->connected[CLIENTS_LISTENER], connection, AAA_TRANSPORT_NOW);
    }
    if (rc != AAA_OK) {
        if (rc != AAA_ERR_TIMEOUT) {
            clients->retry = now_ms() + RETRY_MS; /* the listener stays readable: do not spin */
        }
        aaa_transport_free(connection);
        return 0;
    }
    clients->connected[clients->count] = connection;
    clients->polled[clients->count] =
        (struct pollfd){.fd = aaa_transport_descriptor(connection), .events = POLLIN};
    clients_heard(clients, clients->count++);
    return 1;
}

void clients_accept(clients_t *clients) {
    while (clients->count < clients->limit && accept_client(clients)) {
    }
}

void clients_heard(clients_t *clients, nfds_t slot) {
    clients->heard[slot] = now_ms();
}

void clients_drop(clients_t *clients, nfds_t slot) {
    aaa_transport_free(clients->connected[slot]);
    clients->count--;
    clients->connected[slot] = clients->connected[clients->count];
    clients->polled[slot] = clients->polled[clients->count];
    clients->heard[slot] = clients->heard[clients->count];
}

void clients_drop_all(clients_t *clients) {
    while (clients->count > CLIENTS_FIRST) {
        clients_drop(clients, clients->count - 1);
    }
}
