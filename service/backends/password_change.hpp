// SPDX-License-Identifier: Apache-2.0
//
// A user wants another password. The first method of the list holds the present one, so it
// alone is asked: another one might change a password that does not log the user in.
#pragma once

#include <string>

#include "aaa/dictionary.h"
#include "aaa/names.h"
#include "backends/backend.hpp"

namespace service {

// AAA_MT_..., as the client states it.
inline std::uint32_t request_type(const Question &question) {
    return question.attributes != nullptr
               ? number_in(question.attributes.get(), AAA_TYPE_ATTR).value_or(AAA_MT_NONE)
               : std::uint32_t{AAA_MT_NONE};
}

inline bool is_password_change(const Question &question) {
    return question.function == Function::kAuthentication && request_type(question) == AAA_MT_ASCII_CHPASS;
}

// The answer of a method that changes no passwords; `text` tells the user what to do instead.
Outcome refuse_change(std::string text);

}  // namespace service
