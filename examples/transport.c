/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "transport.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#define MAX_ELEMENTS 8

static int open_socket(const char *path, struct sockaddr_un *address) {
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address->sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    strcpy(address->sun_path, path);
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
}

int transport_listen(const char *path) {
    struct sockaddr_un address;
    int fd = open_socket(path, &address);
    if (fd < 0) {
        return -1;
    }
    if (bind(fd, (struct sockaddr *)&address, sizeof address) != 0 || listen(fd, SOMAXCONN) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

int transport_connect(const char *path) {
    return transport_connect_patient(path, 0);
}

int transport_connect_patient(const char *path, unsigned seconds) {
    struct sockaddr_un address;
    struct timeval patience = {.tv_sec = (time_t)seconds};
    int fd = open_socket(path, &address);
    if (fd < 0) {
        return -1;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) !=
            0 || /* connect() heeds it too */
        connect(fd, (struct sockaddr *)&address, sizeof address) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

static int send_elements(int fd, struct iovec *elements, size_t count) {
    struct msghdr message = {.msg_iov = elements, .msg_iovlen = count};
    ssize_t sent;
    do {
        sent = sendmsg(fd, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -1 : 0;
}

int transport_send(int fd, const iov_t *iov, uint32_t count) {
    static uint32_t sequence;
    struct iovec elements[MAX_ELEMENTS];
    uint32_t total = 0;
    if (count == 0 || count > MAX_ELEMENTS) {
        errno = EINVAL;
        return -1;
    }
    for (uint32_t i = 0; i < count; i++) {
        elements[i] = (struct iovec){.iov_base = iov[i].base, .iov_len = iov[i].len};
        total += (uint32_t)iov[i].len;
    }
    /* The transport's own fields: magic, length, sequence number, sender. */
    uint32_t fields[5] = {TRANSPORT_MAGIC, total, ++sequence, (uint32_t)getpid(), 0};
    memcpy(iov[0].base, fields, sizeof fields);
    return send_elements(fd, elements, count);
}

int transport_send_packet(int fd, void *packet, size_t size) {
    static char packed[TRANSPORT_MAX];
    struct iovec elements[2] = {{.iov_base = packet, .iov_len = size}, {.iov_base = packed, .iov_len = 0}};
    avlist *list = (avlist *)(uintptr_t)((aaa_sess_hdr_t *)packet)->list;
    size_t count = 1;
    if (list != NULL) {
        uint32_t len = (uint32_t)(sizeof packed - size);
        cerrno rc = aaa_avpair_pack_msg_to_buf(list, packed, &len);
        aaa_avpair_free_list(list); /* packed or not, nothing else can be done with it now */
        if (rc != AAA_OK) {
            errno = EMSGSIZE;
            return -1;
        }
        elements[1].iov_len = len;
        count = 2;
    }
    int failed = send_elements(fd, elements, count);
    explicit_bzero(packed, elements[1].iov_len); /* the list may hold a password */
    return failed;
}

int transport_receive(int fd, transport_msg_t *msg) {
    struct iovec element = {.iov_base = msg->u.bytes, .iov_len = sizeof msg->u.bytes};
    struct msghdr message = {.msg_iov = &element, .msg_iovlen = 1};
    ssize_t received;
    do {
        received = recvmsg(fd, &message, 0);
    } while (received < 0 && errno == EINTR);
    msg->len = received > 0 ? (size_t)received : 0;
    if (received > 0 && (message.msg_flags & MSG_TRUNC) != 0) {
        errno = EMSGSIZE;
        return -1;
    }
    return received > 0 ? 1 : (int)received;
}

enum transport_kind transport_kind(const transport_msg_t *msg) {
    const aaa_sess_hdr_t *packet = (const aaa_sess_hdr_t *)msg->u.bytes;
    uint32_t words[2];
    if (msg->len < 20) {
        return TRANSPORT_GARBAGE;
    }
    memcpy(words, msg->u.bytes, sizeof words);
    if (words[0] == TRANSPORT_MAGIC && words[1] == msg->len) {
        return TRANSPORT_CLASSIC;
    }
    if (words[0] == 16 && msg->len >= sizeof *packet && packet->magic == 0x414E && packet->version == 2) {
        return TRANSPORT_SESSION;
    }
    return TRANSPORT_GARBAGE;
}

size_t transport_response_size(uint32_t type) {
    if (type == 0 || (type >= 3 && type <= 8) || type == 14 || type == 15) {
        return AAA_SESS_RSP_SIZE_STATUS;
    }
    return type == 11 || type == 16 ? AAA_SESS_RSP_SIZE_DATA : AAA_SESS_RSP_SIZE_OTHER;
}

avlist *transport_unpack(const transport_msg_t *msg, size_t offset, cerrno *rc) {
    avlist *list = NULL;
    if (offset > msg->len) {
        *rc = AAA_ERR_INVALID_MSG_SIZE;
        return NULL;
    }
    *rc = aaa_avpair_create_list(NULL, &list);
    if (*rc == AAA_OK) {
        *rc = aaa_avpair_unpack_msg_checked(list, (const char *)msg->u.bytes + offset, msg->len - offset);
    }
    if (*rc != AAA_OK) {
        aaa_avpair_free_list(list);
        return NULL;
    }
    return list;
}

uint32_t transport_number(const avlist *list, uint32_t type) {
    uint32_t number = 0;
    uint32_t len = 0;
    cerrno rc = aaa_util_avlist_value_copy(list, type, 0, &number, sizeof number, &len);
    return rc == AAA_OK && len == sizeof number ? number : 0;
}

static int print_line(uint32_t flag, const char *line) {
    (void)flag;
    fputs("    ", stdout);
    for (const char *p = line; *p != '\0'; p++) {
        if (*p == '\n') {
            continue; /* every line of a pair ends in one; the line end below is enough */
        }
        if ((unsigned char)*p < ' ' || *p == 0x7f) {
            printf("\\x%02x", (unsigned)(unsigned char)*p);
        } else {
            putchar(*p);
        }
    }
    putchar('\n');
    return 0;
}

void transport_print_list(const char *heading, const avlist *list) {
    printf("  %s\n", heading);
    aaa_avpair_print_list(list, 0, print_line);
}
