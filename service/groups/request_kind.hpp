// SPDX-License-Identifier: Apache-2.0
//
// What a login is for, beyond its service.
#pragma once

#include <string>

#include "aaa/names.h"
#include "backends/password_change.hpp"

namespace service {

// A user wants a higher privilege level.
inline bool is_enable(const Question &question) {
    return request_type(question) == AAA_MT_ENABLE || question.privilege.has_value();
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
