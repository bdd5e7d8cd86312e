// SPDX-License-Identifier: Apache-2.0
//
// Names of message types, results, flags, times and enumerated values.

#include "message/message_meanings.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "aaa/names.h"
#include "aaa/result_codes.h"

namespace aaactl {
namespace {

// The library describes only some types; the enumerators name all of them. 25
// has two names; this is the one that is sent.
constexpr const char *kRequests[] = {
    "connect",
    "disconnect",
    "get large reply",
    "authentication",
    "authentication with async block",
    "authorization",
    "authorization with async block",
    "accounting",
    "get callback",
    "ping",
    "ikepost",
    "get task map",
    "free user data",
    "",
    "accounting with async block",
    "accounting update",
    "user group",
    "configure RADIUS server",
    "configure server group",
    "configure server in group",
    "configure VRF of group",
    "configure source interface",
    "configure authentication list",
    "configure authorization list",
    "increment references",
    "decrement references",
    "decrement references (as described)",
    "LDAP policy search",
};

struct CodeName {
    uint32_t code;
    const char *name;
    const char *text;
};

constexpr CodeName kCodes[] = {
#define AAA_RESULT_CODE(index, name, text) {index == 0 ? 0 : AAA_ERR_CODE(index), #name, text},
#include "aaa/result_codes.def"
    {AAA_STATUS_END_OF_LIST, "AAA_STATUS_END_OF_LIST", "Reached end of AVPair list"},
};

// For a number without a name the library returns a text in angle brackets.
std::string known(const char *name) {
    return name == nullptr || name[0] == '<' || std::strcmp(name, "UNKNOWN method") == 0 ? "" : name;
}

std::string hexadecimal(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

// Group names are in the system database, which decoding does not read.
std::string method_meaning(uint32_t method) {
    return method >= 1000 && method <= 4999 ? "server group " + std::to_string(method)
                                            : known(aaa_util_print_method(method));
}

// Requests carry the name of a list in the attribute that holds methods in clients. No method number has such
// bytes.
bool is_list_name(const std::string &value) {
    const auto printable = [](char c) { return c > ' ' && c <= '~'; };
    return value.size() > 1 && value.back() == '\0' && std::all_of(value.begin(), value.end() - 1, printable);
}

std::string methods_meaning(const std::string &value) {
    if (is_list_name(value)) {
        return "list " + value.substr(0, value.size() - 1);
    }
    std::string text;
    for (size_t at = 0; at + 4 <= value.size(); at += 4) {
        uint32_t method = 0;
        std::memcpy(&method, value.data() + at, sizeof method);
        const std::string name = method_meaning(method);
        text += (text.empty() ? "" : ", ") + (name.empty() ? std::to_string(method) : name);
    }
    return text;
}

std::string utc(uint64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    tm parts{};
    char text[32];
    // A time after the year 9999 is garbage.
    if (seconds == 0 || seconds > 253402300799u || gmtime_r(&time, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
        return "";
    }
    return text;
}

template <typename T>
T loaded(const std::string &bytes) {
    T value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::string number_meaning(uint32_t type, uint32_t value) {
    switch (type) {
        case AAA_STATUS_ATTR:
            return known(aaa_print_status(value));
        case AAA_TYPE_ATTR:
            return known(aaa_print_msgtype(value));
        case AAA_AUTHEN_METHOD_ATTR:
            return method_meaning(value);
        case AAA_AUTHEN_OPTION_ATTR: {
            const std::string option = known(aaa_util_print_authen_option(value));
            return option.empty() ? known(aaa_print_acct_options(static_cast<int32_t>(value))) : option;
        }
        case AAA_SERVICE_TYPE_ATTR:
            return known(aaa_print_service(static_cast<int32_t>(value)));
        default:
            return "";
    }
}

}  // namespace

std::string meaning_of_message_type(uint64_t value, uint32_t) {
    return value < std::size(kRequests) ? kRequests[value] : "";
}

std::string meaning_of_parameter(uint64_t value, uint32_t type) {
    const auto word = static_cast<uint32_t>(value);
    switch (type) {
        case AAA_REQ_AUTHEN:
        case AAA_REQ_AUTHEN_ASYNC:
            return "variant bits " + hexadecimal(word) + " of the authentication option";
        case AAA_REQ_AUTHOR:
        case AAA_REQ_AUTHOR_ASYNC:
            return known(aaa_util_print_authen_option(word));
        case AAA_REQ_ACCT:
        case AAA_REQ_ACCT_ASYNC:
        case AAA_REQ_ACCT_UPDATE:
            return known(aaa_print_acct_options(static_cast<int32_t>(word)));
        default:
            return "";
    }
}

std::string meaning_of_result(uint64_t value, uint32_t) {
    for (const CodeName &row : kCodes) {
        if (row.code == value) {
            return std::string(row.name) + ": " + row.text;
        }
    }
    return "";
}

std::vector<std::string> flag_names(uint32_t flags) {
    std::vector<std::string> names;
    const auto take = [&](uint32_t bit, const char *name) {
        if ((flags & bit) != 0) {
            names.push_back(name);
            flags &= ~bit;
        }
    };
    take(AAA_AVF_PRINT_EQUALS, "print-equals");
    take(AAA_AVF_PRINT_OUT, "print-out");
    take(AAA_AVF_UPDATED, "updated");
    if (flags != 0) {
        names.push_back(hexadecimal(flags));
    }
    return names;
}

std::string meaning_of_value(const Pair &pair) {
    const std::string value = pair.host_value();
    if (pair.type == AAA_METHODLIST_ATTR) {
        return methods_meaning(value);
    }
    if ((pair.type == AAA_STARTTIME_ATTR || pair.type == AAA_STOPTIME_ATTR) && value.size() == 8) {
        return utc(loaded<uint64_t>(value));
    }
    return value.size() == 4 ? number_meaning(pair.type, loaded<uint32_t>(value)) : "";
}

}  // namespace aaactl
