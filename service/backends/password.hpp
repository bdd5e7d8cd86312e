// SPDX-License-Identifier: Apache-2.0
//
// Passwords and their hashes. Takes milliseconds on purpose; for the threads of Workers.
#pragma once

#include <string>

#include "base/secret.hpp"

namespace service {

// Whether a password has a hash. An empty password has none.
bool password_fits(const Secret &password, const std::string &hash);

// Takes the time that password_fits() takes with a hash of the same kind as `setting`; with
// an empty one, with a hash of the system's usual kind.
void spend_a_check(const Secret &password, const std::string &setting);

}  // namespace service
