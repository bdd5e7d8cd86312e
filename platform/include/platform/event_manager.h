/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_EVENT_MANAGER_H
#define PLATFORM_EVENT_MANAGER_H

/**
 * @file
 * @brief Event managers.
 *
 * One thread blocks on a manager and dispatches its events: wake-ups sent by
 * other threads, and input on connections. A connection that is lost, or cannot
 * be made, is tried again until it is closed.
 *
 * 1. One thread at a time blocks on a manager and dispatches. All other calls
 *    may be made by any thread, at any time, also from a callback.
 * 2. Callbacks run on the dispatching thread, except the first call of an up
 *    callback, which runs on the thread that opens the connection. No lock is
 *    held meanwhile.
 * 3. Null handles and stale handles are refused with a failure.
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
#define EVENT_ERR_SYSTEM      0xa1201400u /**< out of descriptors or timers */
#define EVENT_ERR_BAD_HANDLE  0xa1201600u /**< unknown or stale manager or connection */
#define EVENT_ERR_CHANNEL     0xa1201800u /**< the channel that the up callback returned cannot be watched */
#define EVENT_ERR_FORKED      0xa1201a00u /**< the manager belongs to the parent process */

/** Called on the dispatching thread for each wake-up; its result is not used. */
typedef int32_t (*event_async_handler_t)(void *arg);

/**
 * Creates an event manager. Must not be called on a thread that is joined
 * during a dlclose().
 *
 * @param[in] flags        0
 * @param[in] name         for debugging; may be null
 * @param[in] zero         ignored
 * @param[in] private_word ignored; may be null
 *
 * Ownership: *Caller frees*, with event_manager_destroy(), or leaves it to the unloading of the caller's
 * object.
 *
 * @return the handle, or null with errno set.
 */
PLATFORM_API event_manager_t event_manager_create(uint32_t flags, const char *name, uint32_t zero,
                                                  void *private_word);

/**
 * Ends an event manager with its connections, without calling their down
 * callbacks. A thread in event_block() returns with a failure.
 *
 * @param[in] evm the manager, may be null (nothing is done)
 */
PLATFORM_API void event_manager_destroy(event_manager_t evm);

/**
 * Attaches a wake-up to a manager.
 *
 * @param[in] evm     the manager
 * @param[in] type    128; ignored
 * @param[in] handler may be null: the wake-up then only makes event_block() return
 * @param[in] arg     passed to handler; may be null
 *
 * @return
 * - the wake-up's code, 0 or above
 * - -1: failure, errno is EINVAL, ENOMEM, or EPERM in a forked child
 */
PLATFORM_API int32_t event_async_attach(event_manager_t evm, uint32_t type, event_async_handler_t handler,
                                        void *arg);

/**
 * Sends a wake-up. Every wake-up sent is delivered, once each and in order,
 * also when it was sent before a thread blocked.
 *
 * @param[in] evm   the manager
 * @param[in] code  as event_async_attach() gave it
 * @param[in] value ignored
 *
 * @return
 * - 0: event_block() will return with it
 * - -1: failure, errno is EINVAL, ENOMEM, or EPERM in a forked child
 */
PLATFORM_API int32_t event_send_async(event_manager_t evm, int32_t code, uint64_t value);

/** Context of a thread that calls event_block() and qm_event_dispatch(). */
typedef struct event_block_ctx {
    event_manager_t evm;
    uint32_t word8;  /**< 0 */
    void *buffer;    /**< receives the event; 64 bytes at least, 256 in the library */
    uint64_t size;   /**< of the buffer in bytes */
    uint32_t word32; /**< 0 */
    uint8_t zero[16];
    uint32_t tail; /**< padding */
} event_block_ctx_t;

#define EVENT_BUFFER_MINIMUM 64u

/**
 * Blocks until there is an event and puts it into the context's buffer.
 *
 * @param[in] ctx the context
 *
 * @return
 * - 0: the buffer holds an event
 * - -1: none, errno is EINTR (a signal; call again), EINVAL (handle or buffer), EPERM (forked child) or EBADF
 *   (the manager has been destroyed)
 */
PLATFORM_API int32_t event_block(event_block_ctx_t *ctx);

/**
 * Dispatches the event in the context's buffer.
 *
 * @param[in] ctx   as passed to event_block()
 * @param[in] flags 0; ignored
 *
 * @return
 * - 0: dispatched, or the event's connection has been closed meanwhile
 * - -1: failure, errno as for event_block()
 */
PLATFORM_API int32_t qm_event_dispatch(event_block_ctx_t *ctx, uint32_t flags);

/** The up callback returns the channel id of a sysdb connection, whose notifications are then called back. */
#define EVENT_CONN_TYPE_SYSDB 2u
/** The up callback returns a descriptor; the handler is called when it is readable. */
#define EVENT_CONN_TYPE_FD 3u

/**
 * Creates a connection, closed at first.
 *
 * @param[out] conn_out the handle; untouched on failure
 * @param[in]  evm      the manager
 * @param[in]  up_cb    called as (conn, ctx) when the connection is to be made; returns the channel id
 *                      or descriptor, or a negative number when it cannot be made now
 * @param[in]  ctx      passed to all callbacks; may be null
 * @param[in]  type     EVENT_CONN_TYPE_SYSDB or EVENT_CONN_TYPE_FD
 *
 * Ownership: *Caller frees*, with event_conn_close(), or leaves it to the manager's end.
 *
 * @return
 * - 0: created
 * - EVENT_ERR_INVALID_ARG: a pointer is null, or the type is unknown
 * - EVENT_ERR_BAD_HANDLE: unknown or stale manager
 * - EVENT_ERR_FORKED, EVENT_ERR_NOMEM
 */
PLATFORM_API cerrno event_conn_create(event_conn_t *conn_out, event_manager_t evm, aaa_event_cb_t up_cb,
                                      void *ctx, uint32_t type);

#define EVENT_CONN_NOTIFY_DOWN 0x6000u /**< either bit: the connection is lost */

/**
 * Sets the callback for the loss of a connection, called as (conn, ctx). It
 * releases the channel that the up callback made. Without it the descriptor of a
 * connection of type EVENT_CONN_TYPE_FD is closed by the manager.
 *
 * @param[in] conn    the connection
 * @param[in] mask    EVENT_CONN_NOTIFY_DOWN; without either of its bits the callback is not called
 * @param[in] down_cb may be null
 *
 * @return
 * - 0: set
 * - EVENT_ERR_INVALID_ARG: the connection is null
 * - EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED
 */
PLATFORM_API cerrno event_conn_notify(event_conn_t conn, uint32_t mask, aaa_event_cb_t down_cb);

/**
 * Sets the callback for input on a descriptor, called as (conn, ctx) for as
 * long as there is something to read. When the peer has hung up, the handler is
 * called until everything is read, then the connection is down.
 *
 * @param[in] conn       the connection
 * @param[in] arg        1 = readable; poll's bits POLLPRI and POLLOUT may be added
 * @param[in] handler_cb may be null: only the end of the connection is noticed
 * @param[in] zero       ignored
 *
 * @return
 * - 0: set
 * - EVENT_ERR_INVALID_ARG: the connection is null, or arg is 0 or has unknown bits
 * - EVENT_ERR_CHANNEL: the open channel cannot be watched for these events
 * - EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED
 */
PLATFORM_API cerrno event_conn_evm_handler(event_conn_t conn, uint32_t arg, aaa_event_cb_t handler_cb,
                                           void *zero);

/**
 * Opens a connection: calls the up callback and watches its channel. When it
 * cannot be made, and whenever it is lost, it is tried again: after 100 ms,
 * then at doubled intervals up to 5 s.
 *
 * @param[in] conn the connection
 *
 * @return
 * - 0: it is up, or was already
 * - EVENT_CONN_RETRY: it cannot be made now and will be tried again
 * - EVENT_ERR_CHANNEL: the channel cannot be watched (a file, or a descriptor that is watched already); it is
 *   released like that of a lost connection, and the connection stays closed
 * - EVENT_ERR_INVALID_ARG, EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED, EVENT_ERR_SYSTEM
 */
PLATFORM_API cerrno event_conn_open(event_conn_t conn);

/**
 * Closes a connection for good, without calling its callbacks and without
 * closing its channel; both are the caller's. It does not wait for a
 * callback of the connection that runs on another thread.
 *
 * @param[in] conn the connection
 *
 * @return
 * - 0: closed
 * - EVENT_ERR_INVALID_ARG: the connection is null
 * - EVENT_ERR_BAD_HANDLE, EVENT_ERR_FORKED
 */
PLATFORM_API cerrno event_conn_close(event_conn_t conn);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_EVENT_MANAGER_H */
