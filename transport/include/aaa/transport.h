/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_TRANSPORT_H
#define AAA_TRANSPORT_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "aaa/avpair.h"
#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief AAA messages over a local socket.
 *
 * The compose routines of aaa/messages.h send nothing. This library,
 * libaaaclient, sends what they compose over a UNIX socket that keeps message
 * boundaries (SOCK_SEQPACKET), and receives the answers. It is made for callers
 * that do not own their process, such as login modules: it keeps no state
 * outside its handles, starts no thread, ends no process, prints nothing, and
 * touches neither signal dispositions nor the signal mask.
 *
 * **On the socket.** A classic message is the elements of its io-vector, one
 * after the other. The first 20 bytes of its header record are the transport's:
 * five words in host order, AAA_TRANSPORT_MAGIC, the length of the message, its
 * number on this connection, the process that sent it, and the milliseconds that
 * the sender will wait for an answer, or 0 when it does not say. A server answers
 * within that time rather than try a method whose answer no one would read.
 * aaa_transport_ask() writes what is left until its deadline. A session packet
 * has no room for the time. Its attribute list follows it in packed form, and its
 * list field is 0: an address means nothing to another process. A message has at
 * most AAA_TRANSPORT_MAX bytes. File descriptors that a peer attaches are discarded.
 *
 * **Logins.** A client may number the login that a connection is for, so that
 * the log lines of both sides have the same number. No message carries it: it is
 * part of the name of the client's socket, an abstract one, which the system
 * shows to the server. A name that the system refuses is left out.
 *
 * **Deadlines** are absolute, in nanoseconds of CLOCK_MONOTONIC. A deadline
 * limits how long a call waits; work that needs no waiting is done even after
 * it. So a call with AAA_TRANSPORT_NOW never waits: it gives AAA_ERR_TIMEOUT
 * where it would have to wait. Signals neither extend a deadline nor end a call
 * before it.
 *
 * **Descriptors** are closed on exec and are never 0, 1 or 2, even where the
 * process has closed those. After a fork both processes have the connection.
 * Free the handle in the process that does not use it; this does not close the
 * connection of the other process.
 *
 * **Failures.** The handle keeps the system's error number of a failure: see
 * aaa_transport_errno(). "The usual codes" are
 * - AAA_ERR_INVALID_ARG: a pointer is null;
 * - AAA_ERR_TIMEOUT: the deadline has passed (ETIMEDOUT);
 * - AAA_ERR_NOT_CONNECTED: the handle has no connection (ENOTCONN), or the peer
 *   has closed it (EPIPE or ECONNRESET).
 *
 * **Threads.** A handle is used by one thread at a time. Calls with different
 * handles do not disturb each other.
 */

/** First word of a classic message; a session packet begins with 16. */
#define AAA_TRANSPORT_MAGIC 0x4d414141u
/** Longest message, bytes. */
#define AAA_TRANSPORT_MAX 65536u
/** Most elements that a message may have. */
#define AAA_TRANSPORT_MAX_ELEMENTS 8u
/** Bytes at the start of a classic message that belong to the transport. */
#define AAA_TRANSPORT_FIELDS 20u
/** Deadline of a call that does not wait. */
#define AAA_TRANSPORT_NOW INT64_C(0)
/** Deadline of a call that waits without a limit. */
#define AAA_TRANSPORT_NEVER INT64_MAX
/** For aaa_transport_connect(): the server may run as any user. */
#define AAA_TRANSPORT_ANY_USER UINT32_MAX

/** A connection or a listening socket. */
typedef struct aaa_transport aaa_transport_t;

/** The process at the other end, as the system recorded it when the connection was made. */
typedef struct aaa_transport_peer {
    int32_t pid;  /**< process; of a server, the one that began to listen */
    uint32_t uid; /**< effective user */
    uint32_t gid; /**< effective group */
} aaa_transport_peer_t;
static_assert(sizeof(aaa_transport_peer_t) == 12, "layout of aaa_transport_peer_t");

/** A received message. It may hold a password: wipe it after use. */
typedef struct aaa_transport_msg {
    size_t len; /**< bytes of the message */
    union {
        unsigned char bytes[AAA_TRANSPORT_MAX]; /**< the message */
        uint64_t align;                         /**< the bytes are aligned for every record */
    } u;
} aaa_transport_msg_t;

/** The form of a message. */
typedef enum aaa_transport_kind {
    AAA_TRANSPORT_GARBAGE = 0, /**< neither of the others */
    AAA_TRANSPORT_CLASSIC = 1, /**< a header record and its elements */
    AAA_TRANSPORT_SESSION = 2  /**< a session packet */
} aaa_transport_kind_t;

/** The part of a message before its attribute list. */
typedef struct aaa_transport_head {
    aaa_transport_kind_t kind; /**< classic or session */
    uint32_t type;             /**< message type of the request */
    uint32_t key;              /**< of a session packet; 0 in a classic message */
    cerrno result;             /**< of a reply: was the request processed? The verdict is AAA_STATUS_ATTR */
    size_t list_at;            /**< offset of the packed list; 0 when the message has none */
} aaa_transport_head_t;

/* ---- handles ----------------------------------------------------------- */

/**
 * Makes a handle without a connection.
 *
 * @param[out] transport_out the handle; null on failure
 *
 * Ownership: *Caller frees* with aaa_transport_free().
 *
 * @return
 * - AAA_OK: made
 * - AAA_ERR_INVALID_ARG: @p transport_out is null
 * - AAA_ERR_NOMEM: no memory
 */
AAA_API cerrno aaa_transport_create(aaa_transport_t **transport_out);

/**
 * Closes the connection and releases the handle.
 *
 * @param[in] transport the handle; may be null
 */
AAA_API void aaa_transport_free(aaa_transport_t *transport);

/**
 * Closes the connection and keeps the handle for another one.
 *
 * The path of a listening socket is not removed; unlink() it first.
 *
 * @param[in,out] transport the handle; may be null
 */
AAA_API void aaa_transport_close(aaa_transport_t *transport);

/**
 * Gives the descriptor of the connection, for poll() and the like. It is non-blocking.
 *
 * @param[in] transport the handle; may be null
 *
 * Ownership: *Borrowed* until the handle is closed or connected again.
 *
 * @return the descriptor, or -1 when there is no connection
 */
AAA_API int aaa_transport_descriptor(const aaa_transport_t *transport);

/**
 * Gives the system's error number of the latest call with the handle.
 *
 * @param[in] transport the handle; may be null
 *
 * @return the error number; 0 when the call succeeded, or failed without one
 */
AAA_API int aaa_transport_errno(const aaa_transport_t *transport);

/**
 * Makes the deadline that is the given time from now.
 *
 * @param[in] milliseconds the time
 *
 * @return the deadline
 */
AAA_API int64_t aaa_transport_deadline(uint32_t milliseconds);

/* ---- connections --------------------------------------------------------- */

/**
 * Connects to a server.
 *
 * While the queue of the server is full, the call waits for room. A connection
 * that the handle has is closed first.
 *
 * @param[in,out] transport the handle
 * @param[in]     path      path of the server's socket
 * @param[in]     user      user that the server must run as, or AAA_TRANSPORT_ANY_USER. It is the user of the
 *                          process that began to listen: root for a socket that a service manager opens
 * @param[in]     deadline  when to give up
 *
 * @return
 * - AAA_OK: connected
 * - AAA_ERR_INVALID_ARG: a pointer is null, or the path is empty (ENOENT) or too long for a socket
 *   address (ENAMETOOLONG)
 * - AAA_ERR_TIMEOUT: the queue of the server stayed full
 * - AAA_ERR_SERVER_CONNECT_FAILED: the path does not exist (ENOENT); no one listens there (ECONNREFUSED);
 *   this process may not connect (EACCES); the server runs as another user (EPERM); another reason
 */
AAA_API cerrno aaa_transport_connect(aaa_transport_t *transport, const char *path, uint32_t user,
                                     int64_t deadline);

/**
 * Opens a listening socket.
 *
 * The permissions of the path decide which users may connect: set the umask
 * first. A socket that a dead server left at the path is replaced. The file
 * PATH.lock is locked while the socket listens, so that two servers that start
 * at the same time cannot both take the path; it is not removed.
 *
 * @param[in,out] transport the handle; a connection that it has is closed first
 * @param[in]     path      path of the socket
 *
 * @return
 * - AAA_OK: listening
 * - AAA_ERR_INVALID_ARG: as for aaa_transport_connect()
 * - AAA_ERR_OS: another server listens there, or the path is not a socket (EADDRINUSE); another reason
 */
AAA_API cerrno aaa_transport_listen(aaa_transport_t *transport, const char *path);

/**
 * Accepts a client.
 *
 * @param[in,out] listener   a listening handle; it keeps the error number of a failure
 * @param[in,out] connection the handle for the client; a connection that it has is closed first
 * @param[in]     deadline   when to give up
 *
 * @return
 * - AAA_OK: connected
 * - AAA_ERR_INVALID_ARG, AAA_ERR_TIMEOUT, AAA_ERR_NOT_CONNECTED: the usual codes
 * - AAA_ERR_OS: another reason, such as no free descriptor (EMFILE)
 */
AAA_API cerrno aaa_transport_accept(aaa_transport_t *listener, aaa_transport_t *connection, int64_t deadline);

/**
 * Gives process, user and group of the peer.
 *
 * @param[in,out] transport a connected handle
 * @param[out]    peer_out  process, user and group
 *
 * @return
 * - AAA_OK: given
 * - AAA_ERR_INVALID_ARG, AAA_ERR_NOT_CONNECTED: the usual codes
 * - AAA_ERR_OS: the system does not report them
 */
AAA_API cerrno aaa_transport_peer_of(aaa_transport_t *transport, aaa_transport_peer_t *peer_out);

/**
 * Numbers the login that the next connections of a handle are for.
 *
 * @param[in,out] transport the handle; the connection that it has keeps its number
 * @param[in]     login     a number that others do not use, such as a random one; 0 for none
 *
 * @return
 * - AAA_OK: kept
 * - AAA_ERR_INVALID_ARG: @p transport is null
 */
AAA_API cerrno aaa_transport_set_login(aaa_transport_t *transport, uint32_t login);

/**
 * Gives the number of the login that a client has connected for.
 *
 * It is the client's own word. A server that shows it shows it with the user of
 * the client, so that no user's login can be taken for that of another one.
 *
 * @param[in,out] transport a handle that aaa_transport_accept() has connected
 * @param[out]    login_out the number; 0 when the client gave none, and on failure
 *
 * @return
 * - AAA_OK: given
 * - AAA_ERR_INVALID_ARG, AAA_ERR_NOT_CONNECTED: the usual codes
 */
AAA_API cerrno aaa_transport_login_of(aaa_transport_t *transport, uint32_t *login_out);

/* ---- messages --------------------------------------------------------------- */

/**
 * Sends a classic message.
 *
 * A message is sent whole or not at all.
 *
 * @param[in,out] transport a connected handle
 * @param[in]     iov       elements of the message, the header record first
 * @param[in]     count     how many
 * @param[in]     deadline  when to give up on a peer that does not read
 *
 * Ownership: *Borrowed* for the call; the transport's fields are not written to the caller's record.
 *
 * @return
 * - AAA_OK: sent
 * - AAA_ERR_INVALID_ARG: a pointer is null, @p count is 0 or above AAA_TRANSPORT_MAX_ELEMENTS, or the first
 *   element is shorter than the transport's fields
 * - AAA_ERR_INVALID_MSG_SIZE: longer than AAA_TRANSPORT_MAX, or than the socket takes (EMSGSIZE)
 * - AAA_ERR_TIMEOUT, AAA_ERR_NOT_CONNECTED: the usual codes. What the peer sent before it closed can still
 *   be received
 * - AAA_ERR_LWM_SEND: another reason
 */
AAA_API cerrno aaa_transport_send(aaa_transport_t *transport, const iov_t *iov, uint32_t count,
                                  int64_t deadline);

/**
 * Sends a session packet and its attribute list.
 *
 * @param[in,out] transport a connected handle
 * @param[in,out] packet    the packet; its list field is 0 afterwards
 * @param[in]     size      bytes of the packet
 * @param[in]     deadline  when to give up on a peer that does not read
 *
 * Ownership: the list is *Handed over* and freed, also on failure.
 *
 * @return
 * - AAA_OK: sent
 * - AAA_ERR_INVALID_ARG: a pointer is null, or @p size is less than a packet's header; the packet keeps its
 *   list
 * - AAA_ERR_NOMEM: no memory
 * - AAA_ERR_INVALID_MSG_SIZE: packet and packed list are longer than AAA_TRANSPORT_MAX, or than the socket
 *   takes (EMSGSIZE)
 * - AAA_ERR_TIMEOUT, AAA_ERR_NOT_CONNECTED, AAA_ERR_LWM_SEND: as for aaa_transport_send()
 */
AAA_API cerrno aaa_transport_send_packet(aaa_transport_t *transport, void *packet, size_t size,
                                         int64_t deadline);

/**
 * Receives one message.
 *
 * @param[in,out] transport a connected handle
 * @param[out]    msg       the message; on failure its length is 0 and it holds no byte from the peer
 * @param[in]     deadline  when to give up
 *
 * @return
 * - AAA_OK: received
 * - AAA_ERR_INVALID_MSG_SIZE: longer than AAA_TRANSPORT_MAX (EMSGSIZE); it is discarded, and the connection
 *   stays usable
 * - AAA_ERR_INVALID_ARG, AAA_ERR_TIMEOUT, AAA_ERR_NOT_CONNECTED: the usual codes. An empty message counts as
 *   the end of the connection
 * - AAA_ERR_RECEIVE_RESPONSE: another reason
 */
AAA_API cerrno aaa_transport_receive(aaa_transport_t *transport, aaa_transport_msg_t *msg, int64_t deadline);

/**
 * Sends a classic request and receives the answer.
 *
 * If the answer is not received, the connection is closed: a late answer would
 * be taken for the answer to the next request.
 *
 * @param[in,out] transport a connected handle
 * @param[in]     iov       elements of the request, the header record first
 * @param[in]     count     how many
 * @param[out]    reply     the answer, as from aaa_transport_receive()
 * @param[in]     deadline  when to give up
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return as aaa_transport_send() and aaa_transport_receive()
 */
AAA_API cerrno aaa_transport_ask(aaa_transport_t *transport, const iov_t *iov, uint32_t count,
                                 aaa_transport_msg_t *reply, int64_t deadline);

/**
 * Sends a session packet and receives the answer.
 *
 * If the answer is not received, the connection is closed, as by aaa_transport_ask().
 *
 * @param[in,out] transport a connected handle
 * @param[in,out] packet    the packet; its list field is 0 afterwards
 * @param[in]     size      bytes of the packet
 * @param[out]    reply     the answer, as from aaa_transport_receive()
 * @param[in]     deadline  when to give up
 *
 * Ownership: the list is *Handed over* and freed, also on failure.
 *
 * @return as aaa_transport_send_packet() and aaa_transport_receive()
 */
AAA_API cerrno aaa_transport_ask_packet(aaa_transport_t *transport, void *packet, size_t size,
                                        aaa_transport_msg_t *reply, int64_t deadline);

/* ---- received messages ---------------------------------------------------------- */

/**
 * Tells the form of a message by its first bytes and its length.
 *
 * @param[in] msg the message; may be null
 *
 * @return the form; AAA_TRANSPORT_GARBAGE when these are not well-formed
 */
AAA_API aaa_transport_kind_t aaa_transport_kind_of(const aaa_transport_msg_t *msg);

/**
 * Tells how long the sender of a message waits for the answer.
 *
 * The time began when the message was sent. It is the sender's own word: a
 * server keeps a limit of its own.
 *
 * @param[in] msg the message; may be null
 *
 * @return milliseconds; 0 when the sender does not say, and for a message that is not in the classic form
 */
AAA_API uint32_t aaa_transport_patience_of(const aaa_transport_msg_t *msg);

/**
 * Gives the size of the session packet that answers a request.
 *
 * @param[in] type message type of the request
 *
 * @return bytes
 */
AAA_API size_t aaa_transport_response_size(uint32_t type);

/**
 * Reads the part of a request before its list.
 *
 * @param[in]  msg      the message
 * @param[out] head_out form, type, key, and offset of the list; on failure, the fields that are known
 *
 * @return
 * - AAA_OK: read
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_INVALID_MSG_TYPE: neither a classic message nor a session packet
 * - AAA_ERR_INVALID_MSG_SIZE: it ends before its list
 */
AAA_API cerrno aaa_transport_read_request(const aaa_transport_msg_t *msg, aaa_transport_head_t *head_out);

/**
 * Reads the part of a reply before its list.
 *
 * A classic reply does not name its request, so the caller gives the type. A
 * server that cannot answer in session packets answers in the classic form.
 * The answer to a task map or user group request has data instead of a list and, in the
 * classic form, no result.
 *
 * @param[in]  msg      the message
 * @param[in]  type     message type of the request
 * @param[out] head_out form, type, key, result, and offset of the list; on failure, the fields that are
 *                      known. The result of an authorization in session packets may be the list's
 *                      configuration action
 *
 * @return
 * - AAA_OK: read; the result says whether the request was processed, and AAA_STATUS_ATTR of the list what
 *   the server decided
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_INVALID_MSG_TYPE: neither a classic message nor a session packet
 * - AAA_ERR_INVALID_MSG_SIZE: it ends inside the header
 * - AAA_ERR_UNEXPECTED_REPLY: a session packet that answers another type
 */
AAA_API cerrno aaa_transport_read_reply(const aaa_transport_msg_t *msg, uint32_t type,
                                        aaa_transport_head_t *head_out);

/**
 * Makes a list from the packed bytes in a message.
 *
 * @param[in]  msg      the message
 * @param[in]  list_at  offset of the packed bytes
 * @param[out] list_out the list; null on failure
 *
 * Ownership: *Caller frees* with aaa_avpair_free_list().
 *
 * @return
 * - AAA_OK: made
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_INVALID_MSG_SIZE: the message ends before the list does
 * - others: as aaa_avpair_unpack_msg_checked()
 */
AAA_API cerrno aaa_transport_unpack(const aaa_transport_msg_t *msg, size_t list_at, avlist **list_out);

#ifdef __cplusplus
}
#endif

#endif /* AAA_TRANSPORT_H */
