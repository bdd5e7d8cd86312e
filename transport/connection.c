/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Connecting, listening and accepting clients. Connections and listening
 * sockets are non-blocking, and calls wait in poll(). Only connect() blocks:
 * poll() does not report that a server's queue has room.
 */

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <poll.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "aaa/result_codes.h"
#include "handle.h"

#define FIRST_DESCRIPTOR 3 /* lower ones belong to the process, even when closed */
#define US_PER_SECOND    INT64_C(1000000)
#define NS_PER_US        INT64_C(1000)

/* The name of a client's socket, after the null byte of an abstract name: the number of its login,
 * and one that tells its sockets apart. */
#define LOGIN_NAME   "aaa-login/%08" PRIx32 "/%016" PRIx64
#define LOGIN_PREFIX (sizeof "aaa-login/" - 1)
#define LOGIN_LENGTH (sizeof "aaa-login/00000000/0000000000000000" - 1)

/* Moves a new descriptor above the standard ones. -1 with errno set on failure, or when it was -1. */
static int above_standard(int fd) {
    if (fd < 0 || fd >= FIRST_DESCRIPTOR) {
        return fd;
    }
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
    int error = errno;
    close(fd);
    errno = error;
    return moved;
}

static int open_socket(int flags) {
    return above_standard(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

static cerrno make_address(aaa_transport_t *transport, const char *path, struct sockaddr_un *address) {
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    if (path[0] == '\0') { /* the system would take it for an abstract name */
        return aaa_transport_fail(transport, ENOENT, AAA_ERR_INVALID_ARG);
    }
    if (strlen(path) >= sizeof address->sun_path) {
        return aaa_transport_fail(transport, ENAMETOOLONG, AAA_ERR_INVALID_ARG);
    }
    memcpy(address->sun_path, path, strlen(path));
    return AAA_OK;
}

/* The first steps of connect and listen. */
static cerrno start(aaa_transport_t *transport, const char *path, struct sockaddr_un *address) {
    if (transport == NULL || path == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    aaa_transport_close(transport);
    transport->error = 0;
    transport->sequence = 0;
    return make_address(transport, path, address);
}

/* Closes the handle and reports errno. */
static cerrno give_up(aaa_transport_t *transport, cerrno code) {
    int error = errno;
    aaa_transport_close(transport);
    return aaa_transport_fail(transport, error, code);
}

static int set_blocking(int fd, int blocking) {
    int flags = fcntl(fd, F_GETFL);
    return flags < 0 ? -1 : fcntl(fd, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

/* One attempt. Nothing reports that a server's full queue has room again, so
 * connect() itself waits, for the time that is left. */
static int try_connect(int fd, const struct sockaddr_un *address, int64_t left) {
    if (left > 0 && left != AAA_TRANSPORT_NEVER) {
        int64_t us = (left + NS_PER_US - 1) / NS_PER_US; /* 0 would mean no limit */
        struct timeval wait = {.tv_sec = us / US_PER_SECOND, .tv_usec = us % US_PER_SECOND};
        if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait) != 0) {
            return -1;
        }
    }
    if (set_blocking(fd, left > 0) != 0) {
        return -1;
    }
    return connect(fd, (const struct sockaddr *)address, sizeof *address);
}

/* 0, or -1 with errno set: EAGAIN when the deadline has passed. */
static int connect_until(int fd, const struct sockaddr_un *address, int64_t deadline) {
    for (;;) {
        int64_t left = aaa_transport_remaining(deadline);
        if (try_connect(fd, address, left) == 0) {
            return set_blocking(fd, 0);
        }
        if (errno != EINTR && (errno != EAGAIN || left == 0)) {
            return -1;
        }
    }
}

static cerrno check_user(aaa_transport_t *transport, uint32_t user) {
    aaa_transport_peer_t peer;
    if (user == AAA_TRANSPORT_ANY_USER) {
        return AAA_OK;
    }
    if (aaa_transport_peer_of(transport, &peer) != AAA_OK) {
        errno = transport->error;
        return give_up(transport, AAA_ERR_SERVER_CONNECT_FAILED);
    }
    errno = EPERM;
    return peer.uid == user ? AAA_OK : give_up(transport, AAA_ERR_SERVER_CONNECT_FAILED);
}

/* Without a name the connection is as good for everything else, so a failure is none. */
static void name_login(int fd, uint32_t login) {
    struct sockaddr_un own = {.sun_family = AF_UNIX};
    uint64_t unique;
    if (login == 0 || getrandom(&unique, sizeof unique, GRND_NONBLOCK) != (ssize_t)sizeof unique) {
        return;
    }
    snprintf(own.sun_path + 1, sizeof own.sun_path - 1, LOGIN_NAME, login, unique);
    bind(fd, (struct sockaddr *)&own, offsetof(struct sockaddr_un, sun_path) + 1 + LOGIN_LENGTH);
}

cerrno aaa_transport_set_login(aaa_transport_t *transport, uint32_t login) {
    if (transport == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    transport->login = login;
    return AAA_OK;
}

cerrno aaa_transport_connect(aaa_transport_t *transport, const char *path, uint32_t user, int64_t deadline) {
    struct sockaddr_un address;
    cerrno rc = start(transport, path, &address);
    if (rc != AAA_OK) {
        return rc;
    }
    transport->fd = open_socket(0);
    if (transport->fd >= 0) {
        name_login(transport->fd, transport->login);
    }
    if (transport->fd < 0 || connect_until(transport->fd, &address, deadline) != 0) {
        if (transport->fd >= 0 && errno == EAGAIN) {
            errno = ETIMEDOUT;
            return give_up(transport, AAA_ERR_TIMEOUT);
        }
        return give_up(transport, AAA_ERR_SERVER_CONNECT_FAILED);
    }
    return check_user(transport, user);
}

/* Locks PATH.lock: 0, or -1 with errno set, EADDRINUSE while another server holds the lock. */
static int lock_path(aaa_transport_t *transport, const char *path) {
    char name[sizeof(struct sockaddr_un) + sizeof ".lock"];
    snprintf(name, sizeof name, "%s.lock", path);
    transport->lock =
        above_standard(open(name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (transport->lock < 0) {
        return -1;
    }
    int failed;
    do {
        failed = flock(transport->lock, LOCK_EX | LOCK_NB);
    } while (failed != 0 && errno == EINTR);
    if (failed != 0 && errno == EWOULDBLOCK) {
        errno = EADDRINUSE;
    }
    return failed;
}

/* Removes a socket on which no one listens. bind() refuses anything else at the path. */
static int remove_stale(const struct sockaddr_un *address) {
    struct stat found;
    if (lstat(address->sun_path, &found) != 0 || !S_ISSOCK(found.st_mode)) {
        return 0;
    }
    int fd = open_socket(SOCK_NONBLOCK);
    if (fd < 0) {
        return -1;
    }
    int refused =
        connect(fd, (const struct sockaddr *)address, sizeof *address) != 0 && errno == ECONNREFUSED;
    close(fd);
    return refused ? unlink(address->sun_path) : 0;
}

cerrno aaa_transport_listen(aaa_transport_t *transport, const char *path) {
    struct sockaddr_un address;
    cerrno rc = start(transport, path, &address);
    if (rc != AAA_OK) {
        return rc;
    }
    if (lock_path(transport, path) != 0 || remove_stale(&address) != 0) {
        return give_up(transport, AAA_ERR_OS);
    }
    transport->fd = open_socket(SOCK_NONBLOCK);
    if (transport->fd < 0 || bind(transport->fd, (struct sockaddr *)&address, sizeof address) != 0 ||
        listen(transport->fd, SOMAXCONN) != 0) {
        return give_up(transport, AAA_ERR_OS);
    }
    return AAA_OK;
}

/* A descriptor, or -1 with errno set. */
static int accept_once(int listener) {
    int fd;
    do {
        fd = accept4(listener, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK);
    } while (fd < 0 && (errno == EINTR || errno == ECONNABORTED));
    return above_standard(fd);
}

cerrno aaa_transport_accept(aaa_transport_t *listener, aaa_transport_t *connection, int64_t deadline) {
    if (connection == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc = aaa_transport_begin(listener);
    if (rc != AAA_OK) {
        return rc;
    }
    aaa_transport_close(connection);
    connection->error = 0;
    connection->sequence = 0;
    while (rc == AAA_OK) {
        connection->fd = accept_once(listener->fd);
        if (connection->fd >= 0) {
            return AAA_OK;
        }
        rc = errno == EAGAIN ? aaa_transport_wait(listener, POLLIN, deadline)
                             : aaa_transport_fail(listener, errno, AAA_ERR_OS);
    }
    return rc;
}

cerrno aaa_transport_peer_of(aaa_transport_t *transport, aaa_transport_peer_t *peer_out) {
    struct ucred peer;
    socklen_t size = sizeof peer;
    if (peer_out == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc = aaa_transport_begin(transport);
    if (rc != AAA_OK) {
        return rc;
    }
    if (getsockopt(transport->fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return aaa_transport_fail(transport, errno, AAA_ERR_OS);
    }
    *peer_out = (aaa_transport_peer_t){.pid = peer.pid, .uid = peer.uid, .gid = peer.gid};
    return AAA_OK;
}

cerrno aaa_transport_login_of(aaa_transport_t *transport, uint32_t *login_out) {
    struct sockaddr_un peer;
    socklen_t size = sizeof peer;
    char name[LOGIN_LENGTH + 1] = "";
    char again[LOGIN_LENGTH + 1];
    if (login_out == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    *login_out = 0;
    cerrno rc = aaa_transport_begin(transport);
    if (rc != AAA_OK) {
        return rc;
    }
    if (getpeername(transport->fd, (struct sockaddr *)&peer, &size) != 0 ||
        size != offsetof(struct sockaddr_un, sun_path) + 1 + LOGIN_LENGTH || peer.sun_path[0] != '\0') {
        return AAA_OK;
    }
    /* Any program may choose any name: it counts only if it is the one that its numbers give. */
    memcpy(name, peer.sun_path + 1, LOGIN_LENGTH);
    const uint32_t login = (uint32_t)strtoul(name + LOGIN_PREFIX, NULL, 16);
    const uint64_t unique = strtoull(name + LOGIN_PREFIX + 9, NULL, 16);
    snprintf(again, sizeof again, LOGIN_NAME, login, unique);
    *login_out = memcmp(name, again, sizeof name) == 0 ? login : 0;
    return AAA_OK;
}
