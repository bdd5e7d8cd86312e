// SPDX-License-Identifier: Apache-2.0
//
// Names of the enumerations: constant tables, read after a bounds check. A value
// without a name, inside or outside the range, gives the fixed text of its
// enumeration.

#include "aaa/names.h"

#include <cstddef>
#include <cstring>
#include <iterator>

#include "aaa/server_groups.h"

namespace {

using Name = const char *;

// Names of the values from First to Last.
template <uint32_t First, uint32_t Last>
struct Table {
    Name otherwise;
    Name name[Last - First + 1];

    [[nodiscard]] constexpr Name operator[](uint32_t value) const {
        return value - First <= Last - First ? name[value - First] : otherwise;
    }
};

struct Entry {
    uint32_t value;
    Name name;
};

// A table with the given entries; a value outside its range does not compile.
template <uint32_t First, uint32_t Last, size_t N>
consteval Table<First, Last> table(Name otherwise, const Entry (&entries)[N]) {
    Table<First, Last> made{};
    made.otherwise = otherwise;
    for (Name &name : made.name) {
        name = otherwise;
    }
    for (const Entry &entry : entries) {
        made.name[entry.value - First] = entry.name;
    }
    return made;
}

constexpr Name kInvalidFunction = "<invalid function>";

constexpr Entry kFunctionNames[] = {
    {AAA_FUNC_AUTHEN, "authentication"},
    {AAA_FUNC_AUTHOR, "authorization"},
    {AAA_FUNC_ACCT, "accounting"},
    {AAA_FUNC_AUTHOR_NACM, "authorization_nacm"},
};
constexpr auto kFunctions = table<AAA_FUNC_AUTHEN, AAA_FUNC_AUTHOR_NACM>(kInvalidFunction, kFunctionNames);

constexpr Entry kStatusNames[] = {
    {AAA_STAT_NONE, "NO STATUS"},  {AAA_STAT_PASS, "PASS"},
    {AAA_STAT_FAIL, "FAIL"},       {AAA_STAT_BYPASS, "Authentication bypassed"},
    {AAA_STAT_ERROR, "ERROR"},     {AAA_STAT_NOT_REQUIRED, "Authorization Not Required"},
    {AAA_STAT_GETUSER, "GETUSER"}, {AAA_STAT_GETPASS, "GETPASS"},
    {AAA_STAT_GETDATA, "GETDATA"}, {AAA_STAT_ABORT, "ABORT"},
};
constexpr auto kStatuses = table<AAA_STAT_NONE, AAA_STAT_ABORT>("<unknown STATUS value>", kStatusNames);

constexpr Entry kMessageTypeNames[] = {
    {AAA_MT_NONE, "NONE"},
    {AAA_MT_ASCII_LOGIN, "ASCII LOGIN"},
    {AAA_MT_IB_PAP_V1, "I/B PAP V1"},
    {AAA_MT_IB_PAP_V0, "I/B PAP V0"},
    {AAA_MT_OB_PAP, "O/B PAP"},
    {AAA_MT_OB_PAP_V0, "O/B PAP V0"},
    {AAA_MT_IB_CHAP_V1, "I/B CHAP V1"},
    {AAA_MT_IB_CHAP_V0, "I/B CHAP V0"},
    {AAA_MT_OB_CHAP_V1, "O/B CHAP V1"},
    {AAA_MT_OB_CHAP_V0, "O/B CHAP V0"},
    {AAA_MT_IB_MSCHAP, "I/B MSCHAP"},
    {AAA_MT_OB_MSCHAP, "O/B MSCHAP"},
    {AAA_MT_ASCII_CHPASS, "ASCII CHPASS"},
    {AAA_MT_MSCHAP_LOGIN, "MSCHAP LOGIN"},
    {AAA_MT_ARAP_LOGIN, "ARAP LOGIN"},
    {AAA_MT_ACCT_START, "ACCT START"},
    {AAA_MT_ACCT_UPDATE, "ACCT UPDATE"},
    {AAA_MT_ACCT_STOP, "ACCT STOP"},
    {AAA_MT_AUTHOR_SHELL, "AUTHOR SHELL"},
    {AAA_MT_ENABLE, "ENABLE"},
    {AAA_MT_PER_USER_CONFIG, "PER USER CONFIG"},
    {AAA_MT_AUTHOR_IPCP, "AUTHOR IPCP"},
    {AAA_MT_FREE_RAD_AUTHOR_DATA, "FREE RAD AUTHOR DATA"},
    {AAA_MT_TERMINATE, "TERMINATE"},
    {AAA_MT_AUTHOR_CMD, "AUTHOR CMD"},
    {AAA_MT_AUTHOR_TASK, "AUTHOR TASK"},
    {AAA_MT_IN_VPDN_AUTHOR, "IN VPDN AUTHOR"},
    {AAA_MT_IN_VPDN_AUTHEN, "IN VPDN AUTHEN"},
    {AAA_MT_IN_SBGP_AUTHOR, "IN SBGP AUTHOR"},
    {AAA_MT_AUTHOR_IKE, "AUTHOR IKE"},
};
constexpr auto kMessageTypes =
    table<AAA_MT_NONE, AAA_MT_AUTHOR_IKE>("<Unknown type value>", kMessageTypeNames);

constexpr Entry kAcctOptionNames[] = {
    {AAA_ACCT_START_OPT, "START"},
    {AAA_ACCT_UPDATE_OPT, "UPDATE"},
    {AAA_ACCT_STOP_OPT, "STOP"},
};
constexpr auto kAcctOptions =
    table<AAA_ACCT_START_OPT, AAA_ACCT_STOP_OPT>("<unknown options>", kAcctOptionNames);

constexpr Entry kServiceNames[] = {
    {AAA_SVC_LOGIN, "login"},
    {AAA_SVC_FRAMED, "framed"},
    {AAA_SVC_CALLBACK_LOGIN, "callback-login"},
    {AAA_SVC_CALLBACK_FRAMED, "callback-framed"},
    {AAA_SVC_OUTBOUND, "outbound"},
    {AAA_SVC_ADMIN_EXEC, "admin-exec"},
    {AAA_SVC_EXEC, "exec"},
    {AAA_SVC_EVENTMANAGER, "eventmanager"},
    {AAA_SVC_PPP, "ppp"},
    {AAA_SVC_SYSTEM, "system"},
    {AAA_SVC_CMD, "cmd"},
    {AAA_SVC_RCMD, "rcmd"},
    {AAA_SVC_API, "api"},
    {AAA_SVC_KSH, "ksh"},
    {AAA_SVC_IKE, "ike"},
    {AAA_SVC_HTTP, "http"},
    {AAA_SVC_PLEXA, "plexa"},
    {AAA_SVC_AN, "an"},
    {AAA_SVC_NETCONF, "netconf"},
    {AAA_SVC_MGBL_EXEC, "mgbl-exec"},
    {AAA_SVC_MGBL_ACCT, "mgbl-acct"},
};
constexpr auto kServices = table<AAA_SVC_LOGIN, AAA_SVC_MGBL_ACCT>("<unknown SERVICE value>", kServiceNames);

// Words under which a service is configured for authorization and accounting.
// 20 has a word although no service has the number: kept.
constexpr Name kInvalidService = "<invalid service>";
constexpr uint32_t kNamelessNetworkService = 20;

constexpr Entry kAuthorWords[] = {
    {AAA_SVC_EXEC, "exec"},     {AAA_SVC_EVENTMANAGER, "eventmanager"},
    {AAA_SVC_PPP, "network"},   {AAA_SVC_CMD, "commands"},
    {AAA_SVC_RCMD, "commands"}, {kNamelessNetworkService, "network"},
    {AAA_SVC_IKE, "network"},   {AAA_SVC_PLEXA, "plexa"},
};
constexpr auto kAuthorServices = table<AAA_SVC_EXEC, AAA_SVC_PLEXA>(kInvalidService, kAuthorWords);

constexpr Entry kAcctWords[] = {
    {AAA_SVC_ADMIN_EXEC, "exec"},
    {AAA_SVC_EXEC, "exec"},
    {AAA_SVC_PPP, "network"},
    {AAA_SVC_SYSTEM, "system"},
    {AAA_SVC_CMD, "commands"},
    {AAA_SVC_RCMD, "commands"},
    {AAA_SVC_API, "api"},
    {kNamelessNetworkService, "network"},
    {AAA_SVC_IKE, "network"},
    {AAA_SVC_PLEXA, "plexa"},
    {AAA_SVC_MGBL_EXEC, "mgbl-exec"},
    {AAA_SVC_MGBL_ACCT, "mgbl-rpc"},
};
constexpr auto kAcctServices = table<AAA_SVC_ADMIN_EXEC, AAA_SVC_MGBL_ACCT>(kInvalidService, kAcctWords);

// A method has three different names: kept, all are shown to operators. The last
// one is returned as a copy, except a null.
struct MethodNames {
    Name symbol;
    Name display;
    Name copied;
};

constexpr Name kNoSymbol = "UNKNOWN method";
constexpr Name kNoDisplay = "<unknown method value>";

constexpr MethodNames kMethods[] = {
    {"AAA_METHOD_NOTSET", "<notset>", "<notset>"},
    {"AAA_METHOD_NONE", "none", "none"},
    {"AAA_METHOD_LOCAL", "local", "local"},
    {"AAA_METHOD_RADIUS", "radius", "radius"},
    {"AAA_METHOD_TACACSPLUS", "tacacs+", "tacacs+"},
    {kNoSymbol, "dsmd", "dsmd"},
    {kNoSymbol, "sgbp", "sgbp"},
    {"AAA_METHOD_ACCTD", kNoDisplay, nullptr},
    {"AAA_METHOD_ERROR", "<error>", "<error>"},
    {"AAA_METHOD_IF_AUTHEN", kNoDisplay, nullptr},
    {kNoSymbol, "<server group>", "<svr group>"},
    {kNoSymbol, "<internal use>", "<internal use>"},
    {"AAA_METHOD_LINE", "line", "line"},
    {"AAA_METHOD_ENABLE", "enable", "enable"},
    {kNoSymbol, "kerberos 5", "kerberos 5"},
    {kNoSymbol, kNoDisplay, nullptr},
    {kNoSymbol, "last", "last"},
    {"AAA_METHOD_SYSLOG", "syslog", "syslog"},
};
static_assert(std::size(kMethods) == AAA_METHOD_SYSLOG + 1);

constexpr MethodNames kUnknownMethod = {kNoSymbol, kNoDisplay, nullptr};

const MethodNames &names_of(uint32_t method) {
    return method < std::size(kMethods) ? kMethods[method] : kUnknownMethod;
}

bool is_server_group(int32_t method) {
    return method >= 1000 && method <= 4999;
}

// The table has one entry more than is looked up: kept, type 27 is reported as
// unknown.
constexpr Name kUnknownMessage = "<unknown>";
constexpr uint32_t kLastDescribed = AAA_REQ_DESC_DECREMENT;

constexpr Entry kDescriptions[] = {
    {AAA_REQ_CONNECT, "connect"},
    {AAA_REQ_DISCONNECT, "disconnect"},
    {AAA_REQ_GET_LARGE_REPLY, "get large reply"},
    {AAA_REQ_AUTHEN, "authentication"},
    {AAA_REQ_AUTHEN_ASYNC, "async authentication"},
    {AAA_REQ_AUTHOR, "authorization"},
    {AAA_REQ_AUTHOR_ASYNC, "async authorization"},
    {AAA_REQ_ACCT, "accounting"},
    {AAA_REQ_CALLBACK, "get callback"},
    {AAA_REQ_PING, "ping"},
    {AAA_REQ_IKEPOST, "ikepost"},
    {AAA_REQ_TASKMAP, "get taskmap"},
    {AAA_REQ_FREE_USERDATA, "free user data"},
    {AAA_REQ_DESC_INCREMENT, "increment refcount"},
    {AAA_REQ_DESC_DECREMENT, "decrement refcount"},
    {AAA_REQ_LDAP_POLICY_SEARCH, "ldap policy search"},
};
constexpr auto kMessageDescriptions =
    table<AAA_REQ_CONNECT, AAA_REQ_LDAP_POLICY_SEARCH>(kUnknownMessage, kDescriptions);

}  // namespace

extern "C" {

const char *aaa_function_to_string(uint32_t function) {
    return kFunctions[function];
}

const char *aaa_service_to_string(int32_t function, uint32_t service) {
    switch (function) {
        case AAA_FUNC_AUTHEN:
            return service == AAA_SVC_PPP ? "ppp" : service == AAA_SVC_PLEXA ? "plexa" : "login";
        case AAA_FUNC_AUTHOR:
            return kAuthorServices[service];
        case AAA_FUNC_ACCT:
            return kAcctServices[service];
        default:
            return kInvalidFunction;
    }
}

const char *aaa_util_print_authen_option(uint32_t option) {
    // Not the numbering of the message types: there is no "NONE" and no "ASCII CHPASS".
    switch (option) {
        case AAA_AO_ASCII_LOGIN:
            return "ASCII LOGIN";
        case AAA_AO_IB_PAP_V1:
            return "I/B PAP V1";
        case AAA_AO_IB_PAP_V0:
            return "I/B PAP V0";
        case AAA_AO_OB_PAP:
            return "O/B PAP";
        case AAA_AO_OB_PAP_V0:
            return "O/B PAP V0";
        case AAA_AO_IB_CHAP_V1:
            return "I/B CHAP V1";
        case AAA_AO_IB_CHAP_V0:
            return "I/B CHAP V0";
        case AAA_AO_OB_CHAP_V1:
            return "O/B CHAP V1";
        case AAA_AO_OB_CHAP_V0:
            return "O/B CHAP V0";
        case AAA_AO_IB_MSCHAP:
            return "I/B MSCHAP";
        case AAA_AO_OB_MSCHAP:
            return "O/B MSCHAP";
        case AAA_AO_MSCHAP_LOGIN:
            return "MSCHAP LOGIN";
        case AAA_AO_ARAP_LOGIN:
            return "ARAP LOGIN";
        case AAA_AO_NOTSET:
            return "NOTSET";
        default:
            return kMessageTypes.otherwise;
    }
}

const char *aaa_method_name(uint32_t method) {
    return names_of(method).symbol;
}

const char *aaa_print_service(int32_t service) {
    return kServices[static_cast<uint32_t>(service)];
}

const char *aaa_print_acct_options(int32_t option) {
    return kAcctOptions[static_cast<uint32_t>(option)];
}

const char *aaa_print_status(uint32_t status) {
    return kStatuses[status];
}

const char *aaa_print_msgtype(uint32_t msgtype) {
    return kMessageTypes[msgtype];
}

const char *aaa_util_print_method(uint32_t method) {
    return names_of(method).display;
}

const char *aaa_util_print_authen_method(uint32_t method) {
    return aaa_util_print_method(method);
}

char *aaa_print_method(int32_t method) {
    if (is_server_group(method)) {
        return aaa_util_lookup_sg_name(static_cast<uint32_t>(method));
    }
    const char *const name = names_of(static_cast<uint32_t>(method)).copied;
    return name != nullptr ? strdup(name) : nullptr;
}

const char *aaa_util_msg_type_desc(uint32_t type) {
    return type <= kLastDescribed ? kMessageDescriptions[type] : kUnknownMessage;
}

}  // extern "C"
