// SPDX-License-Identifier: Apache-2.0
//
// Names of the enumerations: constant tables with a bounds check in front.
// A hole inside a range holds a text of its own, so that a lookup is never null.

#include "aaa/names.h"

#include <cstddef>
#include <cstring>

#include "aaa/server_groups.h"

namespace {

using Name = const char *;

// The entry of a table, or the text for values outside it.
template <size_t N>
constexpr Name entry(const Name (&table)[N], uint32_t index, Name otherwise) {
    return index < N ? table[index] : otherwise;
}

constexpr Name kInvalidFunction = "<invalid function>";
constexpr Name kFunctions[] = {"authentication", "authorization", "accounting", "authorization_nacm"};

constexpr Name kUnknownStatus = "<unknown STATUS value>";
constexpr Name kStatuses[] = {
    "NO STATUS", "PASS", "FAIL", "Authentication bypassed", "ERROR", "Authorization Not Required", "GETUSER", "GETPASS",
    "GETDATA",   "ABORT"};

constexpr Name kUnknownType = "<Unknown type value>";
constexpr Name kMessageTypes[] = {"NONE",        "ASCII LOGIN", "I/B PAP V1",   "I/B PAP V0",   "O/B PAP",
                                  "O/B PAP V0",  "I/B CHAP V1", "I/B CHAP V0",  "O/B CHAP V1",  "O/B CHAP V0",
                                  "I/B MSCHAP",  "O/B MSCHAP",  "ASCII CHPASS", "MSCHAP LOGIN", "ARAP LOGIN",
                                  "ACCT START",  "ACCT UPDATE", "ACCT STOP",    "AUTHOR SHELL", "ENABLE",
                                  "PER USER CONFIG", "AUTHOR IPCP", kUnknownType, "FREE RAD AUTHOR DATA", "TERMINATE",
                                  "AUTHOR CMD",  "AUTHOR TASK", "IN VPDN AUTHOR", "IN VPDN AUTHEN", "IN SBGP AUTHOR",
                                  kUnknownType,  "AUTHOR IKE"};

constexpr Name kUnknownOptions = "<unknown options>";
constexpr uint32_t kFirstAcctOption = 128;
constexpr Name kAcctOptions[] = {"START", "UPDATE", kUnknownOptions, "STOP"};

constexpr Name kUnknownService = "<unknown SERVICE value>";
constexpr uint32_t kFirstService = 1;
constexpr Name kServices[] = {"login",         "framed",        "callback-login", "callback-framed", "outbound",
                              "admin-exec",    "exec",          "eventmanager",   kUnknownService,   kUnknownService,
                              "ppp",           kUnknownService, "system",         "cmd",             "rcmd",
                              "api",           "ksh",           kUnknownService,  kUnknownService,   kUnknownService,
                              kUnknownService, kUnknownService, "ike",            "http",            kUnknownService,
                              "plexa",         "an",            kUnknownService,  "netconf",         "mgbl-exec",
                              "mgbl-acct"};

// Words under which a service is configured, one table for each AAA function
// that distinguishes services.
constexpr Name kInvalidService = "<invalid service>";
constexpr uint32_t kFirstAuthorService = 7;
constexpr Name kAuthorServices[] = {"exec",          "eventmanager",  kInvalidService, kInvalidService, "network",
                                    kInvalidService, kInvalidService, "commands",      "commands",      kInvalidService,
                                    kInvalidService, kInvalidService, kInvalidService, "network",       kInvalidService,
                                    kInvalidService, "network",       kInvalidService, kInvalidService, "plexa"};
constexpr uint32_t kFirstAcctService = 6;
constexpr Name kAcctServices[] = {"exec",          "exec",          kInvalidService, kInvalidService, kInvalidService,
                                  "network",       kInvalidService, "system",        "commands",      "commands",
                                  "api",           kInvalidService, kInvalidService, kInvalidService, "network",
                                  kInvalidService, kInvalidService, "network",       kInvalidService, kInvalidService,
                                  "plexa",         kInvalidService, kInvalidService, kInvalidService, "mgbl-exec",
                                  "mgbl-rpc"};

constexpr Name kUnknownMethodName = "UNKNOWN method";
constexpr Name kMethodNames[] = {"AAA_METHOD_NOTSET",      "AAA_METHOD_NONE",      "AAA_METHOD_LOCAL",
                                 "AAA_METHOD_RADIUS",      "AAA_METHOD_TACACSPLUS", kUnknownMethodName,
                                 kUnknownMethodName,       "AAA_METHOD_ACCTD",     "AAA_METHOD_ERROR",
                                 "AAA_METHOD_IF_AUTHEN",   kUnknownMethodName,     kUnknownMethodName,
                                 "AAA_METHOD_LINE",        "AAA_METHOD_ENABLE",    kUnknownMethodName,
                                 kUnknownMethodName,       kUnknownMethodName,     "AAA_METHOD_SYSLOG"};

constexpr Name kUnknownMethodValue = "<unknown method value>";
constexpr Name kMethodValues[] = {"<notset>",       "none",
                                  "local",          "radius",
                                  "tacacs+",        "dsmd",
                                  "sgbp",           kUnknownMethodValue,
                                  "<error>",        kUnknownMethodValue,
                                  "<server group>", "<internal use>",
                                  "line",           "enable",
                                  "kerberos 5",     kUnknownMethodValue,
                                  "last",           "syslog"};

// The third table of the same numbering, for heap copies. A null entry has no
// copy; "<svr group>" differs from the table above: kept.
constexpr Name kPrintedMethods[] = {"<notset>",    "none",           "local", "radius", "tacacs+", "dsmd",
                                    "sgbp",        nullptr,          "<error>", nullptr, "<svr group>",
                                    "<internal use>", "line",        "enable", "kerberos 5", nullptr, "last", "syslog"};

constexpr int32_t kFirstServerGroup = 1000;
constexpr int32_t kEndOfServerGroups = 5000;

constexpr Name kUnknown = "<unknown>";
// The last entry is out of reach: lookups end at 26. Kept, peers report type 27 as unknown.
constexpr uint32_t kLastDescribed = 26;
constexpr Name kMessageDescriptions[] = {"connect",
                                         "disconnect",
                                         "get large reply",
                                         "authentication",
                                         "async authentication",
                                         "authorization",
                                         "async authorization",
                                         "accounting",
                                         "get callback",
                                         "ping",
                                         "ikepost",
                                         "get taskmap",
                                         "free user data",
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         kUnknown,
                                         "increment refcount",
                                         "decrement refcount",
                                         "ldap policy search"};

}  // namespace

const char *aaa_function_to_string(uint32_t function) { return entry(kFunctions, function, kInvalidFunction); }

const char *aaa_service_to_string(int32_t function, uint32_t service) {
    switch (function) {
    case AAA_FUNC_AUTHEN:
        return service == AAA_SVC_PPP ? "ppp" : service == AAA_SVC_PLEXA ? "plexa" : "login";
    case AAA_FUNC_AUTHOR:
        return entry(kAuthorServices, service - kFirstAuthorService, kInvalidService);
    case AAA_FUNC_ACCT:
        return entry(kAcctServices, service - kFirstAcctService, kInvalidService);
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
        return kUnknownType;
    }
}

const char *aaa_method_name(uint32_t method) { return entry(kMethodNames, method, kUnknownMethodName); }

const char *aaa_print_service(int32_t service) {
    return entry(kServices, static_cast<uint32_t>(service) - kFirstService, kUnknownService);
}

const char *aaa_print_acct_options(int32_t option) {
    return entry(kAcctOptions, static_cast<uint32_t>(option) - kFirstAcctOption, kUnknownOptions);
}

const char *aaa_print_status(uint32_t status) { return entry(kStatuses, status, kUnknownStatus); }

const char *aaa_print_msgtype(uint32_t msgtype) { return entry(kMessageTypes, msgtype, kUnknownType); }

const char *aaa_util_print_method(uint32_t method) { return entry(kMethodValues, method, kUnknownMethodValue); }

const char *aaa_util_print_authen_method(uint32_t method) { return aaa_util_print_method(method); }

char *aaa_print_method(int32_t method) {
    if (method >= kFirstServerGroup && method < kEndOfServerGroups) {
        return aaa_util_lookup_sg_name(static_cast<uint32_t>(method));
    }
    const char *name = entry(kPrintedMethods, static_cast<uint32_t>(method), nullptr);
    return name != nullptr ? strdup(name) : nullptr;
}

const char *aaa_util_msg_type_desc(uint32_t type) {
    return type <= kLastDescribed ? kMessageDescriptions[type] : kUnknown;
}
