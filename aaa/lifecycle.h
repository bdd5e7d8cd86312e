/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_LIFECYCLE_H
#define AAA_LIFECYCLE_H

/**
 * @file
 * The running library: the two database connections that its worker thread
 * keeps, and helpers for callers that put connections of their own on an
 * event manager of the platform.
 *
 * Loading the library starts the worker `aaa_util_th`; dlclose() stops it and
 * closes the connections; process exit does neither. Set NO_DLLMAIN in the
 * environment (to anything) to have neither done; a set-user-ID process ignores
 * it. docs/threads.md tells what a caller may rely on.
 */

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Callback of an event connection. The platform hands over the connection and
 * the context that was given when it was made. Up callbacks return the
 * channel to watch (a channel id or file descriptor), or -1 to be called
 * again later; the result of the others is not used.
 */
typedef int32_t (*aaa_event_cb_t)(void *conn, void *ctx);

/**
 * Connection at "/oper/aaa/gl/group-server/", 0 = not connected. Written by
 * the worker and by the server-group functions; callers only read it.
 */
AAA_API extern uint64_t aaa_sgmap_sysdb_connid;

/**
 * Connection at "/cfg/gl/aaa/", 0 = not connected. Written by the worker and
 * by the server-group and method-list functions; callers only read it.
 */
AAA_API extern uint64_t aaa_cfg_sysdb_connid;

/**
 * Opens a database-type event connection.
 * A connection that cannot be made now counts as opened: the event manager
 * keeps trying and calls up_cb when it succeeds. This is traced under flag 5.
 * @param[in]  evm      event manager of the platform
 * @param[out] conn_out the connection; also set when a later step fails
 * @param[in]  up_cb    called when the connection is to be made, first on the caller's thread, later on the
 *                      thread that dispatches evm
 * @param[in]  down_cb  called when the connection was lost
 * @param[in]  ctx      handed to up_cb; may be null
 *
 * Ownership: *Borrowed* evm and ctx, for as long as the connection lives.
 * @return
 * - AAA_OK: opened, or being retried (whichever step said so)
 * - AAA_ERR_INVALID_ARG: evm or conn_out is null
 * - another code: the event manager's own
 */
AAA_API cerrno aaa_util_ecm_sysdb_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb,
                                       aaa_event_cb_t down_cb, void *ctx);

/**
 * Opens a file-descriptor-type event connection.
 * A connection that cannot be opened now counts as opened, as above, and is
 * logged. Unlike above this holds only for the opening itself: the retry code
 * from an earlier step is a failure (callers depend on the difference).
 * @param[in]  evm        event manager of the platform
 * @param[out] conn_out   the connection; also set when a later step fails
 * @param[in]  up_cb      as above; returns the file descriptor to watch
 * @param[in]  handler_cb called when the descriptor is ready
 * @param[in]  ctx        handed to up_cb; may be null
 *
 * Ownership: *Borrowed* evm and ctx, for as long as the connection lives.
 * @return
 * - AAA_OK: opened, or being retried
 * - AAA_ERR_INVALID_ARG: evm or conn_out is null
 * - another code: the event manager's own
 */
AAA_API cerrno aaa_util_ecm_fd_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb,
                                    aaa_event_cb_t handler_cb, void *ctx);

#ifdef __cplusplus
}
#endif

#endif /* AAA_LIFECYCLE_H */
