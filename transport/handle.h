/* SPDX-License-Identifier: Apache-2.0 */
#ifndef TRANSPORT_HANDLE_H
#define TRANSPORT_HANDLE_H

/*
 * Shared by the transport's sources: the handle, waiting, and the reporting of
 * failures.
 */

#include "aaa/transport.h"

struct aaa_transport {
    int fd;            /* the connection or listening socket, -1 for none */
    int lock;          /* of a listening socket: its locked file, -1 for none */
    int error;         /* error number of the latest call */
    uint32_t sequence; /* number of the latest message sent */
    uint32_t login;    /* number of the login that new connections are for, 0 for none */
};

/* Stores the error number and returns the code. */
cerrno aaa_transport_fail(aaa_transport_t *transport, int error, cerrno code);

/* AAA_OK when the handle has a socket; its error number is then cleared. */
cerrno aaa_transport_begin(aaa_transport_t *transport);

/* Nanoseconds until the deadline, 0 when it has passed. */
int64_t aaa_transport_remaining(int64_t deadline);

/* Waits until poll() reports one of the events, an error or a hang-up. AAA_OK, AAA_ERR_TIMEOUT or
 * AAA_ERR_OS. */
cerrno aaa_transport_wait(aaa_transport_t *transport, short events, int64_t deadline);

#endif /* TRANSPORT_HANDLE_H */
