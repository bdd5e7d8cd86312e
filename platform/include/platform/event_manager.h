/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_EVENT_MANAGER_H
#define PLATFORM_EVENT_MANAGER_H

#include "aaa/types.h"
#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void *event_manager_t;
typedef void *event_conn_t;

/* Wake-up handler of the async event: does nothing, its result is not used. */
typedef int32_t (*event_async_handler_t)(void *arg);

/* Called as (0, "/dev/aaa/lib/util", 0, &private_word); null on failure with errno set (null with errno 0
 * counts as success and the attach is then made on the null handle). */
PLATFORM_API event_manager_t event_manager_create(uint32_t flags, const char *name, uint32_t zero, void *private_word);

/* Called as (evm, 128, wakeup_handler, 0); returns the async event code (signed 32-bit), negative = failure
 * with errno set. */
PLATFORM_API int32_t event_async_attach(event_manager_t evm, uint32_t type, event_async_handler_t handler, void *arg);

/* Called as (evm, code, 0); 0 = sent, and then event_block of the thread returns. */
PLATFORM_API int32_t event_send_async(event_manager_t evm, int32_t code, uint64_t value);

/* Context that the worker hands to event_block and qm_event_dispatch. */
typedef struct event_block_ctx {
    event_manager_t evm;
    uint32_t        word8; /* 0 */
    void           *buffer; /* malloc(256) */
    uint64_t        size;   /* 256 */
    uint32_t        word32; /* 0 */
    uint8_t         zero[16];
    uint32_t        tail; /* padding */
} event_block_ctx_t;

/* Blocks until an event is there; 0xFFFFFFFF (-1) = failure, which the worker ignores. */
PLATFORM_API int32_t event_block(event_block_ctx_t *ctx);

/* Dispatches what event_block received: (&ctx, 0). The result is not used. */
PLATFORM_API int32_t qm_event_dispatch(event_block_ctx_t *ctx, uint32_t flags);

/* temporary */
#define EVENT_CONN_NOTIFY_DOWN 0x6000u
#define EVENT_ERR_INVALID_ARG 0xa1201000u
#define EVENT_ERR_BAD_HANDLE  0xa1201600u
#define EVENT_ERR_CHANNEL     0xa1201800u
#define EVENT_ERR_NOMEM       0xa1201200u
#define EVENT_ERR_FORKED      0xa1201a00u
#define EVENT_ERR_SYSTEM      0xa1201400u
PLATFORM_API void event_manager_destroy(event_manager_t evm);
PLATFORM_API cerrno event_conn_close(event_conn_t conn);

#define EVENT_CONN_TYPE_SYSDB 2u
#define EVENT_CONN_TYPE_FD    3u

/* Called as (conn_out, evm, up_cb, ctx, 2 or 3). The platform calls up_cb when the connection is to be made;
 * its result is a channel id or -1. */
PLATFORM_API cerrno event_conn_create(event_conn_t *conn_out, event_manager_t evm, aaa_event_cb_t up_cb, void *ctx, uint32_t type);

/* Called as (conn, 0x6000, down_cb). */
PLATFORM_API cerrno event_conn_notify(event_conn_t conn, uint32_t mask, aaa_event_cb_t down_cb);

/* Called as (conn, 1, handler_cb, 0). */
PLATFORM_API cerrno event_conn_evm_handler(event_conn_t conn, uint32_t arg, aaa_event_cb_t handler_cb, void *zero);

/* Opens the connection. 0x21200e00 = cannot be made now, the event manager keeps retrying. */
PLATFORM_API cerrno event_conn_open(event_conn_t conn);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_EVENT_MANAGER_H */
