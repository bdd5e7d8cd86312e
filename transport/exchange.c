/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Sending and receiving. Socket calls do not block; poll() waits until the
 * deadline.
 */

#define _GNU_SOURCE
#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "aaa/avpair.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "handle.h"

static_assert(AAA_TRANSPORT_FIELDS == 5 * sizeof(uint32_t), "five words");

static cerrno send_failed(aaa_transport_t *transport, int error) {
    switch (error) {
        case EPIPE:
        case ECONNRESET:
        case ENOTCONN:
            return aaa_transport_fail(transport, error, AAA_ERR_NOT_CONNECTED);
        case EMSGSIZE:
            return aaa_transport_fail(transport, error, AAA_ERR_INVALID_MSG_SIZE);
        default:
            return aaa_transport_fail(transport, error, AAA_ERR_LWM_SEND);
    }
}

static cerrno send_elements(aaa_transport_t *transport, struct iovec *elements, size_t count,
                            int64_t deadline) {
    struct msghdr message = {.msg_iov = elements, .msg_iovlen = count};
    cerrno rc = AAA_OK;
    while (rc == AAA_OK) {
        if (sendmsg(transport->fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) {
            return AAA_OK;
        }
        if (errno == EAGAIN) {
            rc = aaa_transport_wait(transport, POLLOUT, deadline);
        } else if (errno != EINTR) {
            rc = send_failed(transport, errno);
        }
    }
    return rc == AAA_ERR_OS ? AAA_ERR_LWM_SEND : rc;
}

/* Checks that the elements form a message, and adds up their lengths. */
static cerrno measure(aaa_transport_t *transport, const iov_t *iov, uint32_t count, uint32_t *total_out) {
    uint64_t total = 0;
    if (iov == NULL || count == 0 || count > AAA_TRANSPORT_MAX_ELEMENTS ||
        iov[0].len < AAA_TRANSPORT_FIELDS) {
        return AAA_ERR_INVALID_ARG;
    }
    for (uint32_t i = 0; i < count; i++) {
        if (iov[i].base == NULL && iov[i].len != 0) {
            return AAA_ERR_INVALID_ARG;
        }
        if (iov[i].len > AAA_TRANSPORT_MAX - total) {
            return aaa_transport_fail(transport, EMSGSIZE, AAA_ERR_INVALID_MSG_SIZE);
        }
        total += iov[i].len;
    }
    *total_out = (uint32_t)total;
    return AAA_OK;
}

/* Sends a message that says how long its sender waits for the answer, in milliseconds. */
static cerrno send_message(aaa_transport_t *transport, const iov_t *iov, uint32_t count, uint32_t patience,
                           int64_t deadline) {
    struct iovec elements[AAA_TRANSPORT_MAX_ELEMENTS + 1];
    uint32_t total = 0;
    cerrno rc = aaa_transport_begin(transport);
    if (rc == AAA_OK) {
        rc = measure(transport, iov, count, &total);
    }
    if (rc != AAA_OK) {
        return rc;
    }
    uint32_t fields[5] = {AAA_TRANSPORT_MAGIC, total, ++transport->sequence, (uint32_t)getpid(), patience};
    elements[0] = (struct iovec){.iov_base = fields, .iov_len = sizeof fields};
    for (uint32_t i = 0; i < count; i++) {
        elements[i + 1] = (struct iovec){.iov_base = iov[i].base, .iov_len = iov[i].len};
    }
    elements[1].iov_base = (unsigned char *)iov[0].base + sizeof fields; /* replaced by ours */
    elements[1].iov_len -= sizeof fields;
    return send_elements(transport, elements, count + 1, deadline);
}

cerrno aaa_transport_send(aaa_transport_t *transport, const iov_t *iov, uint32_t count, int64_t deadline) {
    return send_message(transport, iov, count, 0, deadline);
}

/* Takes the list out of a packet and clears its list field. */
static avlist *take_list(void *packet) {
    const uint64_t none = 0;
    uint64_t list;
    unsigned char *field = (unsigned char *)packet + offsetof(aaa_sess_hdr_t, list);
    memcpy(&list, field, sizeof list);
    memcpy(field, &none, sizeof none);
    return (avlist *)(uintptr_t)list;
}

static cerrno pack_and_send(aaa_transport_t *transport, void *packet, size_t size, avlist *list,
                            int64_t deadline) {
    uint32_t room = (uint32_t)(AAA_TRANSPORT_MAX - size);
    uint32_t length = room;
    char *packed = malloc(room > 0 ? room : 1);
    if (packed == NULL) {
        return AAA_ERR_NOMEM;
    }
    cerrno rc = aaa_avpair_pack_msg_to_buf(list, packed, &length);
    if (rc == AAA_OK) {
        struct iovec elements[2] = {{.iov_base = packet, .iov_len = size},
                                    {.iov_base = packed, .iov_len = length}};
        rc = send_elements(transport, elements, 2, deadline);
    } else { /* packing a valid list fails only for lack of room */
        rc = aaa_transport_fail(transport, EMSGSIZE, AAA_ERR_INVALID_MSG_SIZE);
    }
    explicit_bzero(packed, room); /* the list may hold a password */
    free(packed);
    return rc;
}

cerrno aaa_transport_send_packet(aaa_transport_t *transport, void *packet, size_t size, int64_t deadline) {
    struct iovec element = {.iov_base = packet, .iov_len = size};
    if (transport == NULL || packet == NULL || size < sizeof(aaa_sess_hdr_t)) {
        return AAA_ERR_INVALID_ARG;
    }
    avlist *list = take_list(packet);
    cerrno rc = aaa_transport_begin(transport);
    if (rc == AAA_OK && size > AAA_TRANSPORT_MAX) {
        rc = aaa_transport_fail(transport, EMSGSIZE, AAA_ERR_INVALID_MSG_SIZE);
    }
    if (rc == AAA_OK) {
        rc = list != NULL ? pack_and_send(transport, packet, size, list, deadline)
                          : send_elements(transport, &element, 1, deadline);
    }
    aaa_avpair_free_list(list);
    return rc;
}

/* Bytes received, 0 at the end of the connection, or -1 with errno set. */
static ssize_t receive_once(int fd, aaa_transport_msg_t *msg, int *flags) {
    struct iovec element = {.iov_base = msg->u.bytes, .iov_len = sizeof msg->u.bytes};
    /* Without a control buffer, attached descriptors are discarded. */
    struct msghdr message = {.msg_iov = &element, .msg_iovlen = 1};
    ssize_t received = recvmsg(fd, &message, MSG_DONTWAIT);
    *flags = message.msg_flags;
    return received;
}

static cerrno take_message(aaa_transport_t *transport, aaa_transport_msg_t *msg, size_t received, int flags) {
    if (received == 0) {
        /* After a reset the error number stays ECONNRESET. */
        return aaa_transport_fail(transport, transport->error != 0 ? transport->error : EPIPE,
                                  AAA_ERR_NOT_CONNECTED);
    }
    transport->error = 0;
    if ((flags & MSG_TRUNC) != 0) {
        explicit_bzero(msg->u.bytes, sizeof msg->u.bytes);
        return aaa_transport_fail(transport, EMSGSIZE, AAA_ERR_INVALID_MSG_SIZE);
    }
    msg->len = received;
    return AAA_OK;
}

/* Handles errno after a failed attempt. AAA_OK: try again. */
static cerrno receive_failed(aaa_transport_t *transport, int64_t deadline) {
    switch (errno) {
        case EAGAIN:
            return aaa_transport_wait(transport, POLLIN, deadline);
        case EINTR:
            return AAA_OK;
        case ECONNRESET:
            /* The peer closed with messages unread. The system reports this once,
             * before the messages that the peer had sent: receive those first. */
            if (transport->error == 0) {
                transport->error = ECONNRESET;
                return AAA_OK;
            }
            return AAA_ERR_NOT_CONNECTED;
        default:
            return aaa_transport_fail(transport, errno, AAA_ERR_RECEIVE_RESPONSE);
    }
}

cerrno aaa_transport_receive(aaa_transport_t *transport, aaa_transport_msg_t *msg, int64_t deadline) {
    if (msg == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    msg->len = 0;
    cerrno rc = aaa_transport_begin(transport);
    while (rc == AAA_OK) {
        int flags = 0;
        ssize_t received = receive_once(transport->fd, msg, &flags);
        if (received >= 0) {
            return take_message(transport, msg, (size_t)received, flags);
        }
        rc = receive_failed(transport, deadline);
    }
    return rc == AAA_ERR_OS ? AAA_ERR_RECEIVE_RESPONSE : rc;
}

static cerrno receive_answer(aaa_transport_t *transport, aaa_transport_msg_t *reply, int64_t deadline) {
    cerrno rc = aaa_transport_receive(transport, reply, deadline);
    if (rc != AAA_OK) {
        aaa_transport_close(transport);
    }
    return rc;
}

/* Whole milliseconds until a deadline, at least one: 0 says nothing, and stands for no limit. */
static uint32_t time_left(int64_t deadline) {
    const int64_t millisecond = 1000000;
    if (deadline == AAA_TRANSPORT_NEVER) {
        return 0;
    }
    const int64_t left = aaa_transport_remaining(deadline) / millisecond;
    if (left >= UINT32_MAX) {
        return UINT32_MAX;
    }
    return left > 0 ? (uint32_t)left : 1;
}

cerrno aaa_transport_ask(aaa_transport_t *transport, const iov_t *iov, uint32_t count,
                         aaa_transport_msg_t *reply, int64_t deadline) {
    if (reply == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    reply->len = 0;
    cerrno rc = send_message(transport, iov, count, time_left(deadline), deadline);
    return rc == AAA_OK ? receive_answer(transport, reply, deadline) : rc;
}

cerrno aaa_transport_ask_packet(aaa_transport_t *transport, void *packet, size_t size,
                                aaa_transport_msg_t *reply, int64_t deadline) {
    if (reply == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    reply->len = 0;
    cerrno rc = aaa_transport_send_packet(transport, packet, size, deadline);
    return rc == AAA_OK ? receive_answer(transport, reply, deadline) : rc;
}
