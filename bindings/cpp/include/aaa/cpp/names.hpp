/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_NAMES_HPP
#define AAA_CPP_NAMES_HPP

/**
 * @file
 * @brief The enumerations of aaa/names.h as types that cannot be mixed up, and their names.
 *
 * Every value of 32 bits is a value of each type, named or not: a message from another
 * process may hold any number. The names are borrowed until the library is unloaded.
 */

#include <cstdint>
#include <string_view>

#include "aaa/cpp/memory.hpp"
#include "aaa/names.h"
#include "aaa/server_groups.h"

namespace aaa {

/** enum aaa_function */
enum class function_kind : std::uint32_t {
    authentication = AAA_FUNC_AUTHEN,
    authorization = AAA_FUNC_AUTHOR,
    accounting = AAA_FUNC_ACCT,
    authorization_nacm = AAA_FUNC_AUTHOR_NACM
};

/** enum aaa_status: the verdict on a request, which is not the result of processing it */
enum class verdict : std::uint32_t {
    none = AAA_STAT_NONE,
    pass = AAA_STAT_PASS,
    fail = AAA_STAT_FAIL,
    bypass = AAA_STAT_BYPASS,
    error = AAA_STAT_ERROR,
    not_required = AAA_STAT_NOT_REQUIRED,
    get_user = AAA_STAT_GETUSER,
    get_pass = AAA_STAT_GETPASS,
    get_data = AAA_STAT_GETDATA,
    abort = AAA_STAT_ABORT
};

/** enum aaa_msgtype */
enum class message_kind : std::uint32_t {
    none = AAA_MT_NONE,
    ascii_login = AAA_MT_ASCII_LOGIN,
    ib_pap_v1 = AAA_MT_IB_PAP_V1,
    ib_pap_v0 = AAA_MT_IB_PAP_V0,
    ob_pap = AAA_MT_OB_PAP,
    ob_pap_v0 = AAA_MT_OB_PAP_V0,
    ib_chap_v1 = AAA_MT_IB_CHAP_V1,
    ib_chap_v0 = AAA_MT_IB_CHAP_V0,
    ob_chap_v1 = AAA_MT_OB_CHAP_V1,
    ob_chap_v0 = AAA_MT_OB_CHAP_V0,
    ib_mschap = AAA_MT_IB_MSCHAP,
    ob_mschap = AAA_MT_OB_MSCHAP,
    ascii_chpass = AAA_MT_ASCII_CHPASS,
    mschap_login = AAA_MT_MSCHAP_LOGIN,
    arap_login = AAA_MT_ARAP_LOGIN,
    acct_start = AAA_MT_ACCT_START,
    acct_update = AAA_MT_ACCT_UPDATE,
    acct_stop = AAA_MT_ACCT_STOP,
    author_shell = AAA_MT_AUTHOR_SHELL,
    enable = AAA_MT_ENABLE,
    per_user_config = AAA_MT_PER_USER_CONFIG,
    author_ipcp = AAA_MT_AUTHOR_IPCP,
    free_rad_author_data = AAA_MT_FREE_RAD_AUTHOR_DATA,
    terminate = AAA_MT_TERMINATE,
    author_cmd = AAA_MT_AUTHOR_CMD,
    author_task = AAA_MT_AUTHOR_TASK,
    in_vpdn_author = AAA_MT_IN_VPDN_AUTHOR,
    in_vpdn_authen = AAA_MT_IN_VPDN_AUTHEN,
    in_sbgp_author = AAA_MT_IN_SBGP_AUTHOR,
    author_ike = AAA_MT_AUTHOR_IKE,
    author_svc26 = AAA_MT_AUTHOR_SVC26,
    author_svc29 = AAA_MT_AUTHOR_SVC29
};

/** enum aaa_authen_option */
enum class authen_option : std::uint32_t {
    ascii_login = AAA_AO_ASCII_LOGIN,
    ib_pap_v1 = AAA_AO_IB_PAP_V1,
    ib_pap_v0 = AAA_AO_IB_PAP_V0,
    ob_pap = AAA_AO_OB_PAP,
    ob_pap_v0 = AAA_AO_OB_PAP_V0,
    ib_chap_v1 = AAA_AO_IB_CHAP_V1,
    ib_chap_v0 = AAA_AO_IB_CHAP_V0,
    ob_chap_v1 = AAA_AO_OB_CHAP_V1,
    ob_chap_v0 = AAA_AO_OB_CHAP_V0,
    ib_mschap = AAA_AO_IB_MSCHAP,
    ob_mschap = AAA_AO_OB_MSCHAP,
    mschap_login = AAA_AO_MSCHAP_LOGIN,
    arap_login = AAA_AO_ARAP_LOGIN,
    rsa = AAA_AO_RSA,
    not_set = AAA_AO_NOTSET
};

/** enum aaa_acct_option */
enum class acct_option : std::uint32_t {
    start = AAA_ACCT_START_OPT,
    update = AAA_ACCT_UPDATE_OPT,
    hole = AAA_ACCT_HOLE_OPT,
    stop = AAA_ACCT_STOP_OPT
};

/** enum aaa_service */
enum class service_kind : std::uint32_t {
    login = AAA_SVC_LOGIN,
    framed = AAA_SVC_FRAMED,
    callback_login = AAA_SVC_CALLBACK_LOGIN,
    callback_framed = AAA_SVC_CALLBACK_FRAMED,
    outbound = AAA_SVC_OUTBOUND,
    admin_exec = AAA_SVC_ADMIN_EXEC,
    exec = AAA_SVC_EXEC,
    eventmanager = AAA_SVC_EVENTMANAGER,
    ppp = AAA_SVC_PPP,
    system = AAA_SVC_SYSTEM,
    cmd = AAA_SVC_CMD,
    rcmd = AAA_SVC_RCMD,
    api = AAA_SVC_API,
    ksh = AAA_SVC_KSH,
    ike = AAA_SVC_IKE,
    http = AAA_SVC_HTTP,
    plexa = AAA_SVC_PLEXA,
    an = AAA_SVC_AN,
    netconf = AAA_SVC_NETCONF,
    mgbl_exec = AAA_SVC_MGBL_EXEC,
    mgbl_acct = AAA_SVC_MGBL_ACCT
};

/** enum aaa_method; from 1000 to 4999 the number of a server group */
enum class method_id : std::uint32_t {
    not_set = AAA_METHOD_NOTSET,
    none = AAA_METHOD_NONE,
    local = AAA_METHOD_LOCAL,
    radius = AAA_METHOD_RADIUS,
    tacacsplus = AAA_METHOD_TACACSPLUS,
    dsmd = AAA_METHOD_DSMD,
    sgbp = AAA_METHOD_SGBP,
    acctd = AAA_METHOD_ACCTD,
    error = AAA_METHOD_ERROR,
    if_authen = AAA_METHOD_IF_AUTHEN,
    server_group = AAA_METHOD_SERVER_GROUP,
    internal = AAA_METHOD_INTERNAL,
    line = AAA_METHOD_LINE,
    enable = AAA_METHOD_ENABLE,
    kerberos5 = AAA_METHOD_KERBEROS5,
    value15 = AAA_METHOD_VALUE15,
    last = AAA_METHOD_LAST,
    syslog = AAA_METHOD_SYSLOG
};

/** enum aaa_keyword; radius, tacacs and diameter are also the protocols of server groups */
enum class keyword : std::uint32_t {
    none = AAA_KW_NONE,
    radius = AAA_KW_RADIUS,
    tacacs = AAA_KW_TACACS,
    tacacsplus = AAA_KW_TACACSPLUS,
    local = AAA_KW_LOCAL,
    enable = AAA_KW_ENABLE,
    default_word = AAA_KW_DEFAULT,
    if_needed = AAA_KW_IF_NEEDED,
    if_authenticated = AAA_KW_IF_AUTHENTICATED,
    krb5 = AAA_KW_KRB5,
    krb5_telnet = AAA_KW_KRB5_TELNET,
    krb5_instance = AAA_KW_KRB5_INSTANCE,
    line = AAA_KW_LINE,
    local_case = AAA_KW_LOCAL_CASE,
    guest = AAA_KW_GUEST,
    auth_guest = AAA_KW_AUTH_GUEST,
    rcmd = AAA_KW_RCMD,
    diameter = AAA_KW_DIAMETER
};

/** enum aaa_request */
enum class request_type : std::uint32_t {
    connect = AAA_REQ_CONNECT,
    disconnect = AAA_REQ_DISCONNECT,
    get_large_reply = AAA_REQ_GET_LARGE_REPLY,
    authentication = AAA_REQ_AUTHEN,
    authentication_async = AAA_REQ_AUTHEN_ASYNC,
    authorization = AAA_REQ_AUTHOR,
    authorization_async = AAA_REQ_AUTHOR_ASYNC,
    accounting = AAA_REQ_ACCT,
    callback = AAA_REQ_CALLBACK,
    ping = AAA_REQ_PING,
    ikepost = AAA_REQ_IKEPOST,
    task_map = AAA_REQ_TASKMAP,
    free_user_data = AAA_REQ_FREE_USERDATA,
    accounting_async = AAA_REQ_ACCT_ASYNC,
    accounting_update = AAA_REQ_ACCT_UPDATE,
    user_group = AAA_REQ_USERGROUP,
    config_radius_server = AAA_REQ_CFG_RADSVR,
    config_group = AAA_REQ_CFG_SVRGRP,
    config_group_server = AAA_REQ_CFG_SVR_IN_SG,
    config_group_vrf = AAA_REQ_CFG_VRF_IN_SG,
    config_source_interface = AAA_REQ_CFG_SRC_INTF,
    config_authentication_list = AAA_REQ_CFG_AUTHENLIST,
    config_authorization_list = AAA_REQ_CFG_AUTHORLIST,
    user_increment = AAA_REQ_COMPOSED_INCREMENT,
    user_decrement = AAA_REQ_COMPOSED_DECREMENT,
    described_increment = AAA_REQ_DESC_INCREMENT,
    described_decrement = AAA_REQ_DESC_DECREMENT,
    ldap_policy_search = AAA_REQ_LDAP_POLICY_SEARCH
};

/** The number of an enumerator, for the functions of the C interface. */
template <typename Enum>
requires std::is_enum_v<Enum>
constexpr std::uint32_t number_of(Enum value) noexcept {
    return static_cast<std::uint32_t>(value);
}

/** The name of a value: never empty, "<unknown ...>" or the like for a number without a name. @{ */
inline std::string_view name_of(function_kind value) noexcept {
    return aaa_function_to_string(number_of(value));
}
inline std::string_view name_of(verdict value) noexcept {
    return aaa_print_status(number_of(value));
}
inline std::string_view name_of(message_kind value) noexcept {
    return aaa_print_msgtype(number_of(value));
}
inline std::string_view name_of(authen_option value) noexcept {
    return aaa_util_print_authen_option(number_of(value));
}
inline std::string_view name_of(acct_option value) noexcept {
    return aaa_print_acct_options(static_cast<std::int32_t>(value));
}
inline std::string_view name_of(service_kind value) noexcept {
    return aaa_print_service(static_cast<std::int32_t>(value));
}
/** Server groups are not looked up: method_name() does that. */
inline std::string_view name_of(method_id value) noexcept {
    return aaa_util_print_method(number_of(value));
}
inline std::string_view name_of(request_type value) noexcept {
    return aaa_util_msg_type_desc(number_of(value));
}
inline std::string_view name_of(keyword value) noexcept {
    const char *const word = aaa_util_get_sg_defined_name(number_of(value));
    return word != nullptr ? word : "<unknown keyword>";
}
/** @} */

/** "AAA_METHOD_..." for a method, or "UNKNOWN method". */
inline std::string_view symbol_of(method_id value) noexcept {
    return aaa_method_name(number_of(value));
}

/** The name of a method or of a server group, which is read from the system database; no text without one. */
inline c_string method_name(method_id value) noexcept {
    return c_string(aaa_print_method(static_cast<std::int32_t>(value)));
}

/** The word under which a service is configured for a function, as in paths of method lists. */
inline std::string_view service_word(function_kind function, service_kind service) noexcept {
    return aaa_service_to_string(static_cast<std::int32_t>(function), number_of(service));
}

}  // namespace aaa

#endif /* AAA_CPP_NAMES_HPP */
