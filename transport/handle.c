/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Handles, deadlines and waiting.
 */

#define _GNU_SOURCE
#include "handle.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "aaa/result_codes.h"

#define NS_PER_SECOND INT64_C(1000000000)
#define NS_PER_MS     INT64_C(1000000)

cerrno aaa_transport_fail(aaa_transport_t *transport, int error, cerrno code) {
    transport->error = error;
    return code;
}

cerrno aaa_transport_begin(aaa_transport_t *transport) {
    if (transport == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    return transport->fd >= 0 ? aaa_transport_fail(transport, 0, AAA_OK)
                              : aaa_transport_fail(transport, ENOTCONN, AAA_ERR_NOT_CONNECTED);
}

static int64_t now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * NS_PER_SECOND + time.tv_nsec;
}

int64_t aaa_transport_remaining(int64_t deadline) {
    if (deadline == AAA_TRANSPORT_NEVER) {
        return deadline;
    }
    int64_t time = now();
    return deadline > time ? deadline - time : 0;
}

cerrno aaa_transport_wait(aaa_transport_t *transport, short events, int64_t deadline) {
    struct pollfd polled = {.fd = transport->fd, .events = events};
    for (;;) {
        int64_t left = aaa_transport_remaining(deadline);
        if (left == 0) {
            return aaa_transport_fail(transport, ETIMEDOUT, AAA_ERR_TIMEOUT);
        }
        struct timespec wait = {.tv_sec = left / NS_PER_SECOND, .tv_nsec = left % NS_PER_SECOND};
        int ready = ppoll(&polled, 1, deadline == AAA_TRANSPORT_NEVER ? NULL : &wait, NULL);
        if (ready > 0) {
            return AAA_OK;
        }
        if (ready < 0 && errno != EINTR) {
            return aaa_transport_fail(transport, errno, AAA_ERR_OS);
        }
    }
}

int64_t aaa_transport_deadline(uint32_t milliseconds) {
    return now() + milliseconds * NS_PER_MS;
}

cerrno aaa_transport_create(aaa_transport_t **transport_out) {
    if (transport_out == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    *transport_out = malloc(sizeof **transport_out);
    if (*transport_out == NULL) {
        return AAA_ERR_NOMEM;
    }
    **transport_out = (aaa_transport_t){.fd = -1, .lock = -1};
    return AAA_OK;
}

void aaa_transport_free(aaa_transport_t *transport) {
    aaa_transport_close(transport);
    free(transport);
}

void aaa_transport_close(aaa_transport_t *transport) {
    if (transport == NULL) {
        return;
    }
    if (transport->fd >= 0) {
        close(transport->fd);
    }
    if (transport->lock >= 0) {
        close(transport->lock); /* after the socket, so that the next server finds no one listening */
    }
    transport->fd = -1;
    transport->lock = -1;
}

int aaa_transport_descriptor(const aaa_transport_t *transport) {
    return transport != NULL ? transport->fd : -1;
}

int aaa_transport_errno(const aaa_transport_t *transport) {
    return transport != NULL ? transport->error : 0;
}
