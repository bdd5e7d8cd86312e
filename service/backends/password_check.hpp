// SPDX-License-Identifier: Apache-2.0
//
// One password check on a thread of the workers.
#pragma once

#include <functional>
#include <memory>

#include "backends/backend.hpp"
#include "backends/workers.hpp"

namespace service {

// Runs `check` on a thread and hands its outcome to `done`. When too much waits already, the
// outcome is an error.
std::unique_ptr<Attempt> check_on_a_thread(net::Loop &loop, Workers &workers, std::function<Outcome()> check,
                                           Backend::Done done);

// The challenge or refusal that a question gets before its password is looked at; nullopt
// when there is something to check.
std::optional<Outcome> before_password(const Question &question, bool needs_user);

}  // namespace service
