/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_SERVER_GROUPS_H
#define AAA_SERVER_GROUPS_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* configuration event record (the platform's); two fields are read */
typedef struct aaa_cfg_event {
    uint32_t operation;  /* 2 set, 3 create, 4 delete */
    uint8_t  pass_flags; /* 0x10: first pass */
    uint8_t  pad5[3];
} aaa_cfg_event_t;

#define AAA_CFG_OP_SET         2u
#define AAA_CFG_OP_CREATE      3u
#define AAA_CFG_OP_DELETE      4u
#define AAA_CFG_FIRST_PASS     0x10u
#define AAA_VERDICT_ACCEPTED   1u
#define AAA_VERDICT_REJECTED   2u
#define AAA_VERDICT_FIRST_PASS 4u
#define AAA_INDEX_ANY          0xFFFFFFFFu


AAA_API const char *aaa_util_get_sg_defined_name(uint32_t protocol);
AAA_API char *aaa_util_lookup_sg_name(uint32_t sg_number); /* heap, the caller frees */
AAA_API cerrno aaa_util_lookup_sg_index_and_get_type(const char *sg_name, uint32_t *sg_number_out, uint32_t *protocol_out);
AAA_API cerrno aaa_util_lookup_sg_index(const char *sg_name, uint32_t *sg_number_out);

AAA_API cerrno aaa_util_svr_grp_verify(const aaa_cfg_event_t *event, char **err_text, uint32_t *verdict, const char *sg_name, uint32_t protocol);
AAA_API cerrno aaa_util_svr_grp_apply(uint64_t conn, const aaa_cfg_event_t *event, const char *protocol_name, const char *sg_name, uint32_t *sg_number);
AAA_API cerrno aaa_util_get_next_ord_index(const char *sg_name, uint32_t protocol, uint32_t requested, uint32_t *index_out, const char *host, uint32_t port1, uint32_t port2, uint32_t is_dir, uint32_t is_private);
AAA_API cerrno aaa_util_get_next_tacacs_ord_index(const char *sg_name, uint32_t protocol, uint32_t requested, uint32_t *index_out, const char *host, uint32_t port, uint64_t ignored, uint32_t is_dir, uint32_t is_private);

#ifdef __cplusplus
}
#endif

#endif /* AAA_SERVER_GROUPS_H */
