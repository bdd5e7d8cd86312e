/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CREDENTIALS_H
#define AAA_CREDENTIALS_H

#include "aaa/export.h"
#include "aaa/types.h"
#include "aaa/accessors.h"
#include "aaa/avpair.h"

#ifdef __cplusplus
extern "C" {
#endif

/* gap-free, fields in this order */
typedef struct aaa_usercred {
    char            *username;    /* owned, 257 */
    char            *password;    /* owned, 258 */
    char            *text3;       /* owned, "a further text" */
    char            *ttyname;     /* owned, 20 */
    char            *remote_addr; /* owned, 37 */
    uint32_t         ifh;         /* 22 when not 0 */
    uint32_t         ipaddr;      /* 264 when not 0 */
    aaa_chap_data_t *chap_data;   /* owned */
    void            *task_table;  /* owned, aaa_destroy_task_table */
    uint32_t         line_category;
    char             line_detail[32];
    char             line_detail2[32];
    uint32_t         authen_method; /* 39 */
    avlist          *state_args;
    avlist          *attr_list; /* owned */
    uint32_t         is_copy;   /* 1 in a copy */
    avlist          *in_attr_list;
    uint32_t         unique_id;    /* 1072, service 26 */
    char            *tty_mnemonic; /* 61 */
    uint32_t         user_db_flag; /* 62 */
} aaa_usercred_t;
/* sizeof(aaa_usercred_t) == 192 */

typedef struct aaa_svc_attrs { /* eleven pointer-sized fields */
    char *cmd;               /* 36; an avlist* for service 23 */
    char *app_sessid;        /* 73; for services 14..16 its 8 bytes are the task map value (44) */
    char *rpc_msgid;         /* 74; 73 for service 30 */
    char *rpc_name;          /* 75 */
    char *commit_start_time; /* 70 */
    char *commit_end_time;   /* 71 */
    char *xpath1;            /* 76 */
    char *xpath2;            /* 77 */
    char *xpath3;            /* 78 */
    char *xpath4;            /* 79 */
    char *commit_id;         /* 72 */
} aaa_svc_attrs_t;
/* sizeof(aaa_svc_attrs_t) == 88 */

typedef struct aaa_authen_req {
    avlist *attrs; /* owned */
} aaa_authen_req_t;
/* sizeof(aaa_authen_req_t) == 8 */

typedef struct aaa_author_req { /* twelve pointer-sized fields */
    void   *field[11]; /* not duplicated by a copy, zero in it */
    avlist *attrs;     /* the twelfth, owned */
} aaa_author_req_t;
/* sizeof(aaa_author_req_t) == 96 */

AAA_API cerrno aaa_util_add_usercred_in_avlist(aaa_usercred_t *cred, avlist *list, int32_t service, uint32_t reserved, uint32_t type);
AAA_API cerrno aaa_util_add_svc_attrs_in_avlist(int32_t service, avlist *list, aaa_svc_attrs_t *svc_attrs); /* masks cmd in place */
AAA_API cerrno aaa_lib_update_mnemonic_and_flags(aaa_usercred_t *cred, avlist *list, uint32_t not_accounting);

AAA_API cerrno aaa_util_copy_usercred(const aaa_usercred_t *source, aaa_usercred_t **out, int32_t service, uint32_t suppress, uint32_t type);
AAA_API cerrno aaa_util_free_usercred(aaa_usercred_t *record, int32_t service, uint32_t type);
AAA_API cerrno aaa_util_copy_authen_req(const aaa_authen_req_t *source, aaa_authen_req_t **out);
AAA_API void aaa_util_free_authen_req(aaa_authen_req_t *record);
AAA_API cerrno aaa_util_copy_author_req(const aaa_author_req_t *source, aaa_author_req_t **out);
AAA_API void aaa_util_free_author_req(aaa_author_req_t *record);

#ifdef __cplusplus
}
#endif

#endif /* AAA_CREDENTIALS_H */
