/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_LIFECYCLE_H
#define AAA_LIFECYCLE_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* event-connection callbacks: no arguments used, signed 32-bit result */
typedef int32_t (*aaa_event_cb_t)(void *conn, void *ctx);

AAA_API extern uint64_t aaa_sgmap_sysdb_connid; /* "/oper/aaa/gl/group-server/", 0 = not connected */
AAA_API extern uint64_t aaa_cfg_sysdb_connid;   /* "/cfg/gl/aaa/", 0 = not connected */
AAA_API cerrno aaa_util_ecm_sysdb_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb, aaa_event_cb_t down_cb, void *ctx);
AAA_API cerrno aaa_util_ecm_fd_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb, aaa_event_cb_t handler_cb, void *ctx);

#ifdef __cplusplus
}
#endif

#endif /* AAA_LIFECYCLE_H */
