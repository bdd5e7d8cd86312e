/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_MESSAGES_H
#define AAA_MESSAGES_H

#include "aaa/export.h"
#include "aaa/types.h"
#include "aaa/avpair.h"
#include "aaa/credentials.h"
#include "aaa/dictionary.h"
#include "aaa/session_packets.h"

#ifdef __cplusplus
extern "C" {
#endif

/* request header record, caller-owned */
typedef struct aaa_req_hdr {
    uint8_t  transport0[20]; /* never written */
    uint32_t type;           /* offset 20, host order */
    uint8_t  transport24[8]; /* never written */
    uint32_t param;          /* offset 32, network order once composed (host order in the server-side disconnect) */
    uint32_t fixed36;        /* fourth word of the 40-byte element, not written */
} aaa_req_hdr_t;
/* sizeof(aaa_req_hdr_t) == 40 */

/* connect message fixed part, one 72-byte element */
typedef struct aaa_conn_msg {
    uint8_t  transport0[20];
    uint32_t type; /* 0 */
    uint8_t  transport24[8];
    uint32_t version;   /* 2, network order */
    uint32_t zero36;    /* 0, network order */
    uint32_t value[6];  /* network order */
    uint32_t str1_len;  /* network order, without terminator */
    uint32_t unwritten; /* not written */
} aaa_conn_msg_t;
/* sizeof(aaa_conn_msg_t) == 72 */

/* reply header record, caller-owned */
typedef struct aaa_reply_hdr {
    uint8_t  transport0[20]; /* never written */
    uint32_t status;         /* offset 20 */
    uint32_t second;         /* offset 24 */
    uint32_t tail28;         /* only in the connect reply's 32-byte element, not written */
} aaa_reply_hdr_t;
/* sizeof(aaa_reply_hdr_t) == 32 */

/* RADIUS server record, caller's */
typedef struct aaa_rad_server {
    aaa_ip_addr_t address; /* 20 bytes; their encoding is the caller's */
    uint32_t      auth_port;
    uint32_t      acct_port;
    char         *secret;
    uint32_t      timeout;
    uint32_t      retransmit;
    uint8_t       action;
} aaa_rad_server_t;
/* sizeof(aaa_rad_server_t) == 56 */

/* method-list record, caller's */
typedef struct aaa_method_list {
    char     name[252];
    uint32_t method[4];
    char     sg_name[4][255];
} aaa_method_list_t;
/* sizeof(aaa_method_list_t) == 1288 */


AAA_API cerrno aaa_util_msg_conn_compose(void *msg, uint32_t value1, uint32_t value2, uint32_t value3, uint32_t value4, uint32_t value5, uint32_t value6, const char *str1, const char *str2, iov_t **iov_out, uint32_t *count_out, uint32_t session);
AAA_API cerrno aaa_util_msg_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session);
AAA_API cerrno aaa_util_msg_cb_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session);
AAA_API cerrno aaa_util_msg_ping_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session);
AAA_API cerrno aaa_util_svrmsg_conn_compose(void *msg, uint32_t param, iov_t **iov_out, uint32_t *count_out, void *block, uint32_t session); /* block: 64 bytes */
AAA_API cerrno aaa_util_svrmsg_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, void *data, uint32_t session); /* data: 4 bytes */

AAA_API cerrno aaa_util_msg_authen_compose(void *msg, uint32_t option, int32_t service, const char *methodlist, uint32_t method, aaa_usercred_t *usercred, const avlist *in_attrs, const aaa_rsa_params_t *rsa_params, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, void *async_block, uint32_t session);
AAA_API cerrno aaa_util_msg_author_compose(void *msg, uint32_t authen_option, int32_t service, const char *methodlist, uint32_t method, aaa_usercred_t *usercred, aaa_svc_attrs_t *svc_attrs, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, void *async_block, uint32_t session);
AAA_API cerrno aaa_util_msg_acct_compose(void *msg, uint32_t option, int32_t service, const char *methodlist, uint32_t method, aaa_usercred_t *usercred, aaa_svc_attrs_t *svc_attrs, uint32_t sid, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, void *async_block, uint32_t session);
AAA_API cerrno aaa_util_msg_acct_update_compose(void *msg, uint32_t *sid, void *block, avlist *list, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session); /* sid is a pointer here */
AAA_API cerrno aaa_util_msg_curr_auth_usr_compose(void *msg, const char *const *username_ref, iov_t **iov_out, uint32_t *count_out, uint32_t action, uint32_t session);
AAA_API cerrno aaa_util_msg_ikepost_compose(void *msg, const avlist *list, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_taskmap_compose(void *msg, const char *name, iov_t **iov_out, uint32_t *count_out, uint32_t session);
AAA_API cerrno aaa_util_msg_free_userdata_compose(void *msg, aaa_usercred_t *usercred, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_usergroup_compose(void *msg, const char *request, iov_t **iov_out, uint32_t *count_out, uint32_t session);

AAA_API cerrno aaa_util_reply_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_authen_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_author_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_authen_async_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_author_async_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_acct_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_ping_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_ikepost_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_cb_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_cfg_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_curr_auth_usr_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_conn_compose(void *msg, uint32_t status, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_taskmap_compose(void *msg, void *data, uint32_t length, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);
AAA_API cerrno aaa_util_reply_usergroup_compose(void *msg, char *text, iov_t **iov_out, uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);

AAA_API cerrno aaa_util_msg_cfg_radsvr_compose(void *msg, const aaa_rad_server_t *server, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_cfg_rad_svrgrp_compose(void *msg, const char *group, uint32_t action, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_cfg_svr_in_sg_compose(void *msg, const char *group, const aaa_rad_server_t *server, uint32_t action, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_cfg_vrf_in_sg_compose(void *msg, const char *group, const char *vrf, uint32_t action, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_cfg_src_intf_in_sg_compose(void *msg, const char *interface_name, const char *vrf, uint32_t action, const char *group, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_cfg_authenlist_compose(void *msg, const aaa_method_list_t *mlist, uint32_t action, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);
AAA_API cerrno aaa_util_msg_cfg_authorlist_compose(void *msg, const aaa_method_list_t *mlist, uint32_t action, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size, uint32_t session);

#ifdef __cplusplus
}
#endif

#endif /* AAA_MESSAGES_H */
