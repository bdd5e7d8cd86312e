// SPDX-License-Identifier: Apache-2.0
//
// A login whose server has gone between two rounds begins again. What the user has typed last
// was for that server, such as a code that is good once: it must not be taken for the
// password by another server or the next method.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "backends/backend.hpp"

namespace service {

inline Outcome begin_again(const std::string &why, std::shared_ptr<Dialogue> dialogue) {
    Outcome outcome = Outcome::challenge(Prompt::kPassword,
                                         "The server that asked does not answer any more.\nPassword: ", false,
                                         std::move(dialogue));
    outcome.reason = "the login begins again with the password: " + why;
    return outcome;
}

}  // namespace service
