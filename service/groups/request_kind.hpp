// SPDX-License-Identifier: Apache-2.0
//
// What a login is for, beyond its service.
#pragma once

#include <string>

#include "aaa/dictionary.h"
#include "aaa/names.h"
#include "backends/backend.hpp"

namespace service {

inline std::uint32_t request_type(const Question &question) {
    return question.attributes != nullptr
               ? number_in(question.attributes.get(), AAA_TYPE_ATTR).value_or(AAA_MT_NONE)
               : std::uint32_t{AAA_MT_NONE};
}

// A user wants a higher privilege level.
inline bool is_enable(const Question &question) {
    return request_type(question) == AAA_MT_ENABLE || question.privilege.has_value();
}

// A user wants another password.
inline bool is_password_change(const Question &question) {
    return request_type(question) == AAA_MT_ASCII_CHPASS;
}

// The level that an enable asks for.
inline std::uint32_t wanted_privilege(const Question &question) {
    return question.privilege.value_or(kHighestPrivilege);
}

// Whether the login can be made of a user name and a password. Others need what is not
// carried to the servers.
inline bool has_plain_password(const Question &question) {
    return question.option < AAA_AO_IB_CHAP_V1 || question.option == AAA_AO_NOTSET;
}

}  // namespace service
