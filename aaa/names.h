/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_NAMES_H
#define AAA_NAMES_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief The enumerations of the AAA service, and their names.
 *
 * A name function takes any value. For one without a name it returns a fixed text
 * in angle brackets (or "UNKNOWN method"), never null; only aaa_print_method()
 * returns null.
 *
 * The enumerations resemble each other, but their numbers differ: message types
 * and authentication options, method values and method keywords, services and
 * service keywords. Do not use a value of one for another.
 *
 * Names go into configuration paths and into output that operators compare.
 * They are kept as they are.
 *
 * Ownership, except for aaa_print_method(): *Borrowed* until the library is
 * unloaded. Threads: any.
 */

/** AAA function that a client requests; aaa_function_to_string(). */
enum aaa_function {
    AAA_FUNC_AUTHEN = 0,     /**< "authentication" */
    AAA_FUNC_AUTHOR = 1,     /**< "authorization" */
    AAA_FUNC_ACCT = 2,       /**< "accounting" */
    AAA_FUNC_AUTHOR_NACM = 3 /**< "authorization_nacm" */
};

/** Verdict on a request, value of AAA_STATUS_ATTR; aaa_print_status(). A reply's header has a result code. */
enum aaa_status {
    AAA_STAT_NONE = 0,         /**< "NO STATUS" */
    AAA_STAT_PASS = 1,         /**< "PASS" */
    AAA_STAT_FAIL = 2,         /**< "FAIL" */
    AAA_STAT_BYPASS = 3,       /**< "Authentication bypassed" */
    AAA_STAT_ERROR = 4,        /**< "ERROR" */
    AAA_STAT_NOT_REQUIRED = 5, /**< "Authorization Not Required" */
    AAA_STAT_GETUSER = 6,      /**< "GETUSER" */
    AAA_STAT_GETPASS = 7,      /**< "GETPASS" */
    AAA_STAT_GETDATA = 8,      /**< "GETDATA" */
    AAA_STAT_ABORT = 9         /**< "ABORT" */
};

/** Type of a request, value of AAA_TYPE_ATTR; aaa_print_msgtype(). 22 and 30 are not used. */
enum aaa_msgtype {
    AAA_MT_NONE = 0,
    AAA_MT_ASCII_LOGIN = 1,
    AAA_MT_IB_PAP_V1 = 2,
    AAA_MT_IB_PAP_V0 = 3,
    AAA_MT_OB_PAP = 4,
    AAA_MT_OB_PAP_V0 = 5,
    AAA_MT_IB_CHAP_V1 = 6,
    AAA_MT_IB_CHAP_V0 = 7,
    AAA_MT_OB_CHAP_V1 = 8,
    AAA_MT_OB_CHAP_V0 = 9,
    AAA_MT_IB_MSCHAP = 10,
    AAA_MT_OB_MSCHAP = 11,
    AAA_MT_ASCII_CHPASS = 12,
    AAA_MT_MSCHAP_LOGIN = 13,
    AAA_MT_ARAP_LOGIN = 14,
    AAA_MT_ACCT_START = 15,
    AAA_MT_ACCT_UPDATE = 16,
    AAA_MT_ACCT_STOP = 17,
    AAA_MT_AUTHOR_SHELL = 18,
    AAA_MT_ENABLE = 19,
    AAA_MT_PER_USER_CONFIG = 20,
    AAA_MT_AUTHOR_IPCP = 21,
    AAA_MT_FREE_RAD_AUTHOR_DATA = 23,
    AAA_MT_TERMINATE = 24,
    AAA_MT_AUTHOR_CMD = 25,
    AAA_MT_AUTHOR_TASK = 26,
    AAA_MT_IN_VPDN_AUTHOR = 27,
    AAA_MT_IN_VPDN_AUTHEN = 28,
    AAA_MT_IN_SBGP_AUTHOR = 29,
    AAA_MT_AUTHOR_IKE = 31,
    AAA_MT_AUTHOR_SVC26 = 32, /**< of service AAA_SVC_PLEXA; has no name */
    AAA_MT_AUTHOR_SVC29 = 33  /**< of service AAA_SVC_NETCONF; has no name */
};

/**
 * How a user authenticates, value of AAA_AUTHEN_OPTION_ATTR; aaa_util_print_authen_option().
 * Not the numbers of the message types: 0 to 10 are those of 1 to 11, 11 and 12 those of 13 and 14.
 */
enum aaa_authen_option {
    AAA_AO_ASCII_LOGIN = 0,
    AAA_AO_IB_PAP_V1 = 1,
    AAA_AO_IB_PAP_V0 = 2,
    AAA_AO_OB_PAP = 3,
    AAA_AO_OB_PAP_V0 = 4,
    AAA_AO_IB_CHAP_V1 = 5,
    AAA_AO_IB_CHAP_V0 = 6,
    AAA_AO_OB_CHAP_V1 = 7,
    AAA_AO_OB_CHAP_V0 = 8,
    AAA_AO_IB_MSCHAP = 9,
    AAA_AO_OB_MSCHAP = 10,
    AAA_AO_MSCHAP_LOGIN = 11,
    AAA_AO_ARAP_LOGIN = 12,
    AAA_AO_RSA = 13,       /**< adds the RSA parameters; has no name */
    AAA_AO_NOTSET = 0x8000 /**< result of the getter when the attribute is missing */
};

/** Kind of an accounting request; aaa_print_acct_options(). */
enum aaa_acct_option {
    AAA_ACCT_START_OPT = 128,
    AAA_ACCT_UPDATE_OPT = 129,
    AAA_ACCT_HOLE_OPT = 130, /**< not used; has no name */
    AAA_ACCT_STOP_OPT = 131
};

/**
 * Service that a user asks for, value of AAA_SERVICE_TYPE_ATTR; aaa_print_service().
 * 1 to 6 are those of the RADIUS attribute Service-Type. 9, 10, 12, 18 to 22, 25 and 28 are not used.
 */
enum aaa_service {
    AAA_SVC_LOGIN = 1,
    AAA_SVC_FRAMED = 2,
    AAA_SVC_CALLBACK_LOGIN = 3,
    AAA_SVC_CALLBACK_FRAMED = 4,
    AAA_SVC_OUTBOUND = 5,
    AAA_SVC_ADMIN_EXEC = 6,
    AAA_SVC_EXEC = 7,
    AAA_SVC_EVENTMANAGER = 8,
    AAA_SVC_PPP = 11,
    AAA_SVC_SYSTEM = 13,
    AAA_SVC_CMD = 14,
    AAA_SVC_RCMD = 15,
    AAA_SVC_API = 16,
    AAA_SVC_KSH = 17,
    AAA_SVC_IKE = 23,
    AAA_SVC_HTTP = 24,
    AAA_SVC_PLEXA = 26,
    AAA_SVC_AN = 27,
    AAA_SVC_NETCONF = 29,
    AAA_SVC_MGBL_EXEC = 30,
    AAA_SVC_MGBL_ACCT = 31
};

/**
 * How a request is answered; aaa_util_print_method(), aaa_method_name(), aaa_print_method().
 * From 1000 to 4999 a method is the number of a server group.
 */
enum aaa_method {
    AAA_METHOD_NOTSET = 0,
    AAA_METHOD_NONE = 1,
    AAA_METHOD_LOCAL = 2,
    AAA_METHOD_RADIUS = 3,
    AAA_METHOD_TACACSPLUS = 4,
    AAA_METHOD_DSMD = 5,
    AAA_METHOD_SGBP = 6,
    AAA_METHOD_ACCTD = 7,
    AAA_METHOD_ERROR = 8,
    AAA_METHOD_IF_AUTHEN = 9,
    AAA_METHOD_SERVER_GROUP = 10,
    AAA_METHOD_INTERNAL = 11,
    AAA_METHOD_LINE = 12,
    AAA_METHOD_ENABLE = 13,
    AAA_METHOD_KERBEROS5 = 14,
    AAA_METHOD_VALUE15 = 15,
    AAA_METHOD_LAST = 16,
    AAA_METHOD_SYSLOG = 17
};

/**
 * Words in which method lists and the protocols of server groups are configured;
 * aaa_util_get_sg_defined_name() gives the word. AAA_KW_RADIUS, AAA_KW_TACACS and
 * AAA_KW_DIAMETER are also the protocols. Not the numbers of the method values.
 */
enum aaa_keyword {
    AAA_KW_NONE = 0,
    AAA_KW_RADIUS = 1,
    AAA_KW_TACACS = 2,
    AAA_KW_TACACSPLUS = 3,
    AAA_KW_LOCAL = 4,
    AAA_KW_ENABLE = 5,
    AAA_KW_DEFAULT = 6,
    AAA_KW_IF_NEEDED = 7,
    AAA_KW_IF_AUTHENTICATED = 8,
    AAA_KW_KRB5 = 9,
    AAA_KW_KRB5_TELNET = 10,
    AAA_KW_KRB5_INSTANCE = 11,
    AAA_KW_LINE = 12,
    AAA_KW_LOCAL_CASE = 13,
    AAA_KW_GUEST = 14,
    AAA_KW_AUTH_GUEST = 15,
    AAA_KW_RCMD = 16,
    AAA_KW_DIAMETER = 17
};

/** Message types of the envelope between client and server; aaa_util_msg_type_desc(). */
enum aaa_request {
    AAA_REQ_CONNECT = 0,
    AAA_REQ_DISCONNECT = 1,
    AAA_REQ_GET_LARGE_REPLY = 2,
    AAA_REQ_AUTHEN = 3,
    AAA_REQ_AUTHEN_ASYNC = 4,
    AAA_REQ_AUTHOR = 5,
    AAA_REQ_AUTHOR_ASYNC = 6,
    AAA_REQ_ACCT = 7,
    AAA_REQ_CALLBACK = 8,
    AAA_REQ_PING = 9,
    AAA_REQ_IKEPOST = 10,
    AAA_REQ_TASKMAP = 11,
    AAA_REQ_FREE_USERDATA = 12,
    AAA_REQ_ACCT_ASYNC = 14,
    AAA_REQ_ACCT_UPDATE = 15,
    AAA_REQ_USERGROUP = 16,
    AAA_REQ_CFG_RADSVR = 17,
    AAA_REQ_CFG_SVRGRP = 18,
    AAA_REQ_CFG_SVR_IN_SG = 19,
    AAA_REQ_CFG_VRF_IN_SG = 20,
    AAA_REQ_CFG_SRC_INTF = 21,
    AAA_REQ_CFG_AUTHENLIST = 22,
    AAA_REQ_CFG_AUTHORLIST = 23,
    AAA_REQ_COMPOSED_INCREMENT = 24, /**< what is sent to increment a reference count */
    AAA_REQ_COMPOSED_DECREMENT = 25, /**< sent to decrement it; described as "increment refcount": kept */
    AAA_REQ_DESC_INCREMENT = 25,     /**< the type described as "increment refcount" */
    AAA_REQ_DESC_DECREMENT = 26,     /**< the type described as "decrement refcount" */
    AAA_REQ_LDAP_POLICY_SEARCH = 27  /**< has no description: kept */
};

/**
 * Names an AAA function.
 * @param[in] function enum aaa_function
 * @return the name, or "<invalid function>"
 */
AAA_API const char *aaa_function_to_string(uint32_t function);

/**
 * Gives the word under which a service is configured for an AAA function.
 *
 * For authentication every service but AAA_SVC_PPP and AAA_SVC_PLEXA is "login",
 * unknown numbers included: kept. Several services share a word.
 * @param[in] function AAA_FUNC_AUTHEN, AAA_FUNC_AUTHOR or AAA_FUNC_ACCT
 * @param[in] service  enum aaa_service
 * @return the word, "<invalid service>" when the service is not configured for the function, or
 *         "<invalid function>" for any other function, AAA_FUNC_AUTHOR_NACM included
 */
AAA_API const char *aaa_service_to_string(int32_t function, uint32_t service);

/**
 * Names an authentication option.
 * @param[in] option enum aaa_authen_option
 * @return the name, or "<Unknown type value>"
 */
AAA_API const char *aaa_util_print_authen_option(uint32_t option);

/**
 * Gives the symbolic name of a method.
 * @param[in] method enum aaa_method
 * @return "AAA_METHOD_...", or "UNKNOWN method", also for some methods that have a display name
 */
AAA_API const char *aaa_method_name(uint32_t method);

/**
 * Names a service.
 * @param[in] service enum aaa_service
 * @return the name, or "<unknown SERVICE value>"
 */
AAA_API const char *aaa_print_service(int32_t service);

/**
 * Names an accounting option.
 * @param[in] option enum aaa_acct_option
 * @return the name, or "<unknown options>"
 */
AAA_API const char *aaa_print_acct_options(int32_t option);

/**
 * Names a status.
 * @param[in] status enum aaa_status
 * @return the name, or "<unknown STATUS value>"
 */
AAA_API const char *aaa_print_status(uint32_t status);

/**
 * Names a request type.
 * @param[in] msgtype enum aaa_msgtype
 * @return the name, or "<Unknown type value>"
 */
AAA_API const char *aaa_print_msgtype(uint32_t msgtype);

/**
 * Gives the display name of a method. Server groups are not looked up.
 * @param[in] method enum aaa_method
 * @return the name, or "<unknown method value>"
 */
AAA_API const char *aaa_util_print_method(uint32_t method);

/**
 * Does the same as aaa_util_print_method(), which it calls.
 * @param[in] method enum aaa_method
 * @return the name, or "<unknown method value>"
 */
AAA_API const char *aaa_util_print_authen_method(uint32_t method);

/**
 * Makes a copy of the display name of a method or of the name of a server group.
 *
 * The names are those of aaa_util_print_method(), except "<svr group>" for
 * AAA_METHOD_SERVER_GROUP: kept. For 1000 to 4999 the name comes from
 * aaa_util_lookup_sg_name(), which reads the system database.
 * @param[in] method enum aaa_method, or the number of a server group
 *
 * Ownership: *Caller frees*.
 * @return the name, or null without such a method (AAA_METHOD_ACCTD, AAA_METHOD_IF_AUTHEN and
 *         AAA_METHOD_VALUE15 included), such a group or memory
 */
AAA_API char *aaa_print_method(int32_t method);

/**
 * Describes a message type of the envelope.
 * @param[in] type enum aaa_request
 * @return the description, or "<unknown>", also for 13 to 24 and for AAA_REQ_LDAP_POLICY_SEARCH
 */
AAA_API const char *aaa_util_msg_type_desc(uint32_t type);

#ifdef __cplusplus
}
#endif

#endif /* AAA_NAMES_H */
