/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_EVENT_MANAGER_H
#define PLATFORM_EVENT_MANAGER_H

/**
 * @file
 * Event managers: one thread blocks on a manager and dispatches what comes,
 * wake-ups sent by other threads and input on connections. A connection that
 * is lost, or cannot be made, is tried again until it is closed.
 *
 * 1. One thread at a time blocks on a manager and dispatches. All other calls
 *    may be made by any thread, at any time, also from a callback.
 * 2. Callbacks run on the dispatching thread, except the first call of an up
 *    callback, which runs on the thread that opens the connection. No lock is
 *    held meanwhile.
 * 3. Null handles, and handles of what no longer exists, are refused with a
 *    failure; they do no harm.
 * 4. After fork a manager belongs to the parent alone: in the child every call
 *    on it fails. The child may create managers of its own.
 * 5. A manager whose creator's object is unloaded (see __in_dlclose) is
 *    released when the next manager is created or the library is loaded again.
 *
 * event_block and qm_event_dispatch, and what they call, never enter the
 * dynamic loader: the thread may be joined by one that holds its lock.
 */

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void *event_manager_t;
typedef void *event_conn_t;

/* Codes of the event manager besides EVENT_CONN_RETRY of aaa/result_codes.h. */
#define EVENT_ERR_INVALID_ARG 0xa1201000u
#define EVENT_ERR_NOMEM       0xa1201200u
#define EVENT_ERR_SYSTEM      0xa1201400u /**< no descriptor or timer to be had */
#define EVENT_ERR_BAD_HANDLE  0xa1201600u /**< no such manager or connection, or not any more */
#define EVENT_ERR_CHANNEL     0xa1201800u /**< what the up callback gave cannot be watched */
#define EVENT_ERR_FORKED      0xa1201a00u /**< the manager is the parent process's */

/** Called on the dispatching thread for a wake-up that was sent; its result is not used. */
typedef int32_t (*event_async_handler_t)(void *arg);

/**
 * Creates an event manager. Not to be called on a thread that is joined while
 * an object is unloaded.
 *
 * @param flags         0
 * @param name          in, for people; may be null
 * @param zero          not looked at
 * @param private_word  kept for the caller's use, not looked at and not written; may be null
 *
 * Ownership: Caller frees with event_manager_destroy(), or leaves it to its unloading.
 * @return the handle, or null with errno set.
 */
PLATFORM_API event_manager_t event_manager_create(uint32_t flags, const char *name, uint32_t zero, void *private_word);

/**
 * Ends an event manager with its connections, without calling their down
 * callbacks. A thread in event_block() returns with a failure. The manager may
 * be null.
 */
PLATFORM_API void event_manager_destroy(event_manager_t evm);

/**
 * Attaches a wake-up to a manager.
 *
 * @param evm      the manager
 * @param type     128; not looked at
 * @param handler  may be null: the wake-up then only makes event_block() return
 * @param arg      handed to handler; may be null
 *
 * @return the wake-up's code, 0 or above; -1 with errno set (EINVAL, EPERM in a forked child, ENOMEM).
 */
PLATFORM_API int32_t event_async_attach(event_manager_t evm, uint32_t type, event_async_handler_t handler, void *arg);

/**
 * Sends a wake-up. Every wake-up sent is delivered, once each and in order,
 * also those that were sent before anybody blocked.
 *
 * @param evm    the manager
 * @param code   as event_async_attach() gave it
 * @param value  not looked at
 *
 * @return 0: event_block() will return with it; -1 with errno set (EINVAL, EPERM in a forked child, ENOMEM).
 */
PLATFORM_API int32_t event_send_async(event_manager_t evm, int32_t code, uint64_t value);

/** What a thread hands to event_block() and qm_event_dispatch(). */
typedef struct event_block_ctx {
    event_manager_t evm;
    uint32_t        word8; /**< 0 */
    void           *buffer; /**< receives the event; 64 bytes at least, 256 in the library */
    uint64_t        size;   /**< of the buffer in bytes */
    uint32_t        word32; /**< 0 */
    uint8_t         zero[16];
    uint32_t        tail; /**< padding */
} event_block_ctx_t;

#define EVENT_BUFFER_MINIMUM 64u

/**
 * Blocks until there is an event and puts it into the context's buffer.
 *
 * @return 0; -1 with errno set: EINTR (a signal; call again), EINVAL (handle, buffer), EPERM (forked child), EBADF
 * (the manager has been destroyed).
 */
PLATFORM_API int32_t event_block(event_block_ctx_t *ctx);

/**
 * Dispatches the event in the context's buffer.
 *
 * @param ctx    as it was handed to event_block()
 * @param flags  0; not looked at
 *
 * @return 0, also when the event's connection has been closed meanwhile; -1 with errno set as event_block().
 */
PLATFORM_API int32_t qm_event_dispatch(event_block_ctx_t *ctx, uint32_t flags);

/** The up callback gives the channel id of a sysdb connection; its notifications are called back when they come. */
#define EVENT_CONN_TYPE_SYSDB 2u
/** The up callback gives a descriptor; the handler is called when it is readable. */
#define EVENT_CONN_TYPE_FD 3u

/**
 * Creates a connection, closed at first.
 *
 * @param conn_out  out, untouched on failure
 * @param evm       the manager
 * @param up_cb     called as (conn, ctx) when the connection is to be made; gives the channel id or descriptor, or
 *                  a negative number when it cannot be made now
 * @param ctx       handed to all callbacks; may be null
 * @param type      EVENT_CONN_TYPE_SYSDB or EVENT_CONN_TYPE_FD
 *
 * Ownership: Caller frees with event_conn_close(), or leaves it to the manager's end.
 * @return 0, EVENT_ERR_INVALID_ARG, EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED, EVENT_ERR_NOMEM.
 */
PLATFORM_API cerrno event_conn_create(event_conn_t *conn_out, event_manager_t evm, aaa_event_cb_t up_cb, void *ctx,
                                      uint32_t type);

#define EVENT_CONN_NOTIFY_DOWN 0x6000u /**< either bit: the connection is lost */

/**
 * Sets the callback for the loss of a connection, called as (conn, ctx). It
 * releases what the up callback has made. Without one the descriptor of a
 * connection of type EVENT_CONN_TYPE_FD is closed by the manager.
 *
 * @param conn     the connection
 * @param mask     EVENT_CONN_NOTIFY_DOWN; without either of its bits the callback is not called
 * @param down_cb  may be null
 *
 * @return 0, EVENT_ERR_INVALID_ARG (null connection), EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED.
 */
PLATFORM_API cerrno event_conn_notify(event_conn_t conn, uint32_t mask, aaa_event_cb_t down_cb);

/**
 * Sets the callback for input on a descriptor, called as (conn, ctx) for as
 * long as there is something to read. When the peer has hung up, the handler
 * is called until everything is read, then the connection is down.
 *
 * @param conn        the connection
 * @param arg         1 = readable; poll's bits POLLPRI and POLLOUT may be added
 * @param handler_cb  may be null: only the end of the connection is noticed
 * @param zero        not looked at
 *
 * @return 0, EVENT_ERR_INVALID_ARG (null connection, unknown bits), EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED,
 * EVENT_ERR_CHANNEL.
 */
PLATFORM_API cerrno event_conn_evm_handler(event_conn_t conn, uint32_t arg, aaa_event_cb_t handler_cb, void *zero);

/**
 * Opens a connection: calls the up callback and watches what it gives. When
 * it cannot be made, and whenever it is lost, it is tried again: after 100 ms,
 * then at doubled intervals up to 5 s.
 *
 * @return
 * - 0: it is up, or has been before
 * - EVENT_CONN_RETRY: it cannot be made now and will be tried again
 * - EVENT_ERR_CHANNEL: what the up callback gave cannot be watched (a file, a descriptor that is watched already);
 *   it is released like that of a lost connection, and the connection stays closed
 * - EVENT_ERR_INVALID_ARG, EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED, EVENT_ERR_SYSTEM
 */
PLATFORM_API cerrno event_conn_open(event_conn_t conn);

/**
 * Closes a connection for good, without calling its callbacks and without
 * closing its channel; both are the caller's. A callback of the connection
 * that runs on another thread is not waited for.
 *
 * @return 0, EVENT_ERR_INVALID_ARG, EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED.
 */
PLATFORM_API cerrno event_conn_close(event_conn_t conn);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_EVENT_MANAGER_H */
