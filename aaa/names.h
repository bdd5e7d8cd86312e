/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_NAMES_H
#define AAA_NAMES_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

enum aaa_function {
    AAA_FUNC_AUTHEN = 0,      /* "authentication" */
    AAA_FUNC_AUTHOR = 1,      /* "authorization" */
    AAA_FUNC_ACCT = 2,        /* "accounting" */
    AAA_FUNC_AUTHOR_NACM = 3  /* "authorization_nacm" */
};

enum aaa_status {
    AAA_STAT_NONE = 0,         /* "NO STATUS" */
    AAA_STAT_PASS = 1,         /* "PASS" */
    AAA_STAT_FAIL = 2,         /* "FAIL" */
    AAA_STAT_BYPASS = 3,       /* "Authentication bypassed" */
    AAA_STAT_ERROR = 4,        /* "ERROR" */
    AAA_STAT_NOT_REQUIRED = 5, /* "Authorization Not Required" */
    AAA_STAT_GETUSER = 6,      /* "GETUSER" */
    AAA_STAT_GETPASS = 7,      /* "GETPASS" */
    AAA_STAT_GETDATA = 8,      /* "GETDATA" */
    AAA_STAT_ABORT = 9         /* "ABORT" */
};

/* value of AAA_TYPE_ATTR (3); 22 and 30 are holes, "<Unknown type value>" */
enum aaa_msgtype {
    AAA_MT_NONE = 0, AAA_MT_ASCII_LOGIN = 1, AAA_MT_IB_PAP_V1 = 2, AAA_MT_IB_PAP_V0 = 3, AAA_MT_OB_PAP = 4,
    AAA_MT_OB_PAP_V0 = 5, AAA_MT_IB_CHAP_V1 = 6, AAA_MT_IB_CHAP_V0 = 7, AAA_MT_OB_CHAP_V1 = 8,
    AAA_MT_OB_CHAP_V0 = 9, AAA_MT_IB_MSCHAP = 10, AAA_MT_OB_MSCHAP = 11, AAA_MT_ASCII_CHPASS = 12,
    AAA_MT_MSCHAP_LOGIN = 13, AAA_MT_ARAP_LOGIN = 14, AAA_MT_ACCT_START = 15, AAA_MT_ACCT_UPDATE = 16,
    AAA_MT_ACCT_STOP = 17, AAA_MT_AUTHOR_SHELL = 18, AAA_MT_ENABLE = 19, AAA_MT_PER_USER_CONFIG = 20,
    AAA_MT_AUTHOR_IPCP = 21, AAA_MT_FREE_RAD_AUTHOR_DATA = 23, AAA_MT_TERMINATE = 24, AAA_MT_AUTHOR_CMD = 25,
    AAA_MT_AUTHOR_TASK = 26, AAA_MT_IN_VPDN_AUTHOR = 27, AAA_MT_IN_VPDN_AUTHEN = 28, AAA_MT_IN_SBGP_AUTHOR = 29,
    AAA_MT_AUTHOR_IKE = 31,
    AAA_MT_AUTHOR_SVC26 = 32, /* service 26; outside the name table */
    AAA_MT_AUTHOR_SVC29 = 33  /* service 29; outside the name table */
};

/* value of AAA_AUTHEN_OPTION_ATTR (43) */
enum aaa_authen_option {
    AAA_AO_ASCII_LOGIN = 0, AAA_AO_IB_PAP_V1 = 1, AAA_AO_IB_PAP_V0 = 2, AAA_AO_OB_PAP = 3, AAA_AO_OB_PAP_V0 = 4,
    AAA_AO_IB_CHAP_V1 = 5, AAA_AO_IB_CHAP_V0 = 6, AAA_AO_OB_CHAP_V1 = 7, AAA_AO_OB_CHAP_V0 = 8,
    AAA_AO_IB_MSCHAP = 9, AAA_AO_OB_MSCHAP = 10, AAA_AO_MSCHAP_LOGIN = 11, AAA_AO_ARAP_LOGIN = 12,
    AAA_AO_RSA = 13,       /* adds the RSA parameters; has no name */
    AAA_AO_NOTSET = 0x8000 /* "NOTSET", the getter's default */
};

enum aaa_acct_option { AAA_ACCT_START_OPT = 128, AAA_ACCT_UPDATE_OPT = 129, AAA_ACCT_HOLE_OPT = 130, AAA_ACCT_STOP_OPT = 131 };

/* 9, 10, 12, 18 to 22, 25 and 28 are holes, "<unknown SERVICE value>" */
enum aaa_service {
    AAA_SVC_LOGIN = 1, AAA_SVC_FRAMED = 2, AAA_SVC_CALLBACK_LOGIN = 3, AAA_SVC_CALLBACK_FRAMED = 4,
    AAA_SVC_OUTBOUND = 5, AAA_SVC_ADMIN_EXEC = 6, AAA_SVC_EXEC = 7, AAA_SVC_EVENTMANAGER = 8, AAA_SVC_PPP = 11,
    AAA_SVC_SYSTEM = 13, AAA_SVC_CMD = 14, AAA_SVC_RCMD = 15, AAA_SVC_API = 16, AAA_SVC_KSH = 17,
    AAA_SVC_IKE = 23, AAA_SVC_HTTP = 24, AAA_SVC_PLEXA = 26, AAA_SVC_AN = 27, AAA_SVC_NETCONF = 29,
    AAA_SVC_MGBL_EXEC = 30, AAA_SVC_MGBL_ACCT = 31
};

enum aaa_method {
    AAA_METHOD_NOTSET = 0, AAA_METHOD_NONE = 1, AAA_METHOD_LOCAL = 2, AAA_METHOD_RADIUS = 3,
    AAA_METHOD_TACACSPLUS = 4, AAA_METHOD_DSMD = 5, AAA_METHOD_SGBP = 6, AAA_METHOD_ACCTD = 7,
    AAA_METHOD_ERROR = 8, AAA_METHOD_IF_AUTHEN = 9, AAA_METHOD_SERVER_GROUP = 10, AAA_METHOD_INTERNAL = 11,
    AAA_METHOD_LINE = 12, AAA_METHOD_ENABLE = 13, AAA_METHOD_KERBEROS5 = 14, AAA_METHOD_VALUE15 = 15,
    AAA_METHOD_LAST = 16, AAA_METHOD_SYSLOG = 17
};

/* method keywords (18-entry table, own numbering); 1, 2 and 17 are also the server-group protocols */
enum aaa_keyword {
    AAA_KW_NONE = 0, AAA_KW_RADIUS = 1, AAA_KW_TACACS = 2, AAA_KW_TACACSPLUS = 3, AAA_KW_LOCAL = 4,
    AAA_KW_ENABLE = 5, AAA_KW_DEFAULT = 6, AAA_KW_IF_NEEDED = 7, AAA_KW_IF_AUTHENTICATED = 8, AAA_KW_KRB5 = 9,
    AAA_KW_KRB5_TELNET = 10, AAA_KW_KRB5_INSTANCE = 11, AAA_KW_LINE = 12, AAA_KW_LOCAL_CASE = 13,
    AAA_KW_GUEST = 14, AAA_KW_AUTH_GUEST = 15, AAA_KW_RCMD = 16, AAA_KW_DIAMETER = 17
};

/* request codes of the client-server envelope */
enum aaa_request {
    AAA_REQ_CONNECT = 0, AAA_REQ_DISCONNECT = 1, AAA_REQ_GET_LARGE_REPLY = 2, AAA_REQ_AUTHEN = 3,
    AAA_REQ_AUTHEN_ASYNC = 4, AAA_REQ_AUTHOR = 5, AAA_REQ_AUTHOR_ASYNC = 6, AAA_REQ_ACCT = 7,
    AAA_REQ_CALLBACK = 8, AAA_REQ_PING = 9, AAA_REQ_IKEPOST = 10, AAA_REQ_TASKMAP = 11,
    AAA_REQ_FREE_USERDATA = 12, AAA_REQ_ACCT_ASYNC = 14, AAA_REQ_ACCT_UPDATE = 15, AAA_REQ_USERGROUP = 16,
    AAA_REQ_CFG_RADSVR = 17, AAA_REQ_CFG_SVRGRP = 18, AAA_REQ_CFG_SVR_IN_SG = 19, AAA_REQ_CFG_VRF_IN_SG = 20,
    AAA_REQ_CFG_SRC_INTF = 21, AAA_REQ_CFG_AUTHENLIST = 22, AAA_REQ_CFG_AUTHORLIST = 23,
    AAA_REQ_COMPOSED_INCREMENT = 24, /* increment is composed as 24 ... */
    AAA_REQ_COMPOSED_DECREMENT = 25, /* ... and decrement as 25, although ... */
    AAA_REQ_DESC_INCREMENT = 25,     /* ... the description table names 25 "increment refcount" */
    AAA_REQ_DESC_DECREMENT = 26,     /* ... and 26 "decrement refcount" */
    AAA_REQ_LDAP_POLICY_SEARCH = 27
};

AAA_API const char *aaa_function_to_string(uint32_t function);
AAA_API const char *aaa_service_to_string(int32_t function, uint32_t service);
AAA_API const char *aaa_util_print_authen_option(uint32_t option);
AAA_API const char *aaa_method_name(uint32_t method);
AAA_API const char *aaa_print_service(int32_t service);
AAA_API const char *aaa_print_acct_options(int32_t option);
AAA_API const char *aaa_print_status(uint32_t status);
AAA_API const char *aaa_print_msgtype(uint32_t msgtype);
AAA_API const char *aaa_util_print_method(uint32_t method);
AAA_API const char *aaa_util_print_authen_method(uint32_t method);
AAA_API char *aaa_print_method(int32_t method); /* heap copy or null, the caller frees */
AAA_API const char *aaa_util_msg_type_desc(uint32_t type);

#ifdef __cplusplus
}
#endif

#endif /* AAA_NAMES_H */
