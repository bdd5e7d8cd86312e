// SPDX-License-Identifier: Apache-2.0

#include "database/list_rules.hpp"

#include <set>
#include <string_view>

#include "aaa/names.h"

namespace aaactl {

const std::vector<std::string> &list_functions() {
    static const std::vector<std::string> functions{"authentication", "authorization", "accounting",
                                                    "authorization_nacm"};
    return functions;
}

bool is_configurable(uint32_t method) {
    switch (method) {
        case AAA_METHOD_NONE:
        case AAA_METHOD_LOCAL:
        case AAA_METHOD_RADIUS:
        case AAA_METHOD_TACACSPLUS:
        case AAA_METHOD_IF_AUTHEN:
        case AAA_METHOD_SERVER_GROUP:
        case AAA_METHOD_LINE:
        case AAA_METHOD_ENABLE:
        case AAA_METHOD_KERBEROS5:
        case AAA_METHOD_SYSLOG:
            return true;
        default:
            return false;
    }
}

std::string service_word_of(uint32_t function, uint32_t service) {
    const std::string_view word = aaa_service_to_string(static_cast<int32_t>(function), service);
    if (!word.starts_with('<')) {
        return std::string(word);
    }
    switch (service) {
#define AAA_SERVICE_WORD(number, word) \
    case number:                       \
        return word;
#include "numbers/service_words.def"
        default:
            return "";
    }
}

std::vector<std::string> used_service_words(const std::string &function) {
    // The rights of network management are those of the other authorization lists.
    const uint32_t number = function == "authentication" ? AAA_FUNC_AUTHEN
                            : function == "accounting"   ? AAA_FUNC_ACCT
                                                         : AAA_FUNC_AUTHOR;
    std::set<std::string> words;
    for (uint32_t service = AAA_SVC_LOGIN; service <= AAA_SVC_MGBL_ACCT; ++service) {
        words.insert(service_word_of(number, service));
    }
    words.erase("");
    return {words.begin(), words.end()};
}

bool answers_for(const std::string &function, uint32_t method) {
    switch (method) {
        case AAA_METHOD_NONE:
        case AAA_METHOD_RADIUS:
        case AAA_METHOD_TACACSPLUS:
        case AAA_METHOD_SERVER_GROUP:
            return true;
        case AAA_METHOD_LOCAL:
            return function != "accounting";
        case AAA_METHOD_LINE:
        case AAA_METHOD_ENABLE:
            return function == "authentication";
        case AAA_METHOD_IF_AUTHEN:
            return function != "authentication" && function != "accounting";
        case AAA_METHOD_SYSLOG:
            return function == "accounting";
        default:
            return false;
    }
}

}  // namespace aaactl
