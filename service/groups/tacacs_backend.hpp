// SPDX-License-Identifier: Apache-2.0
//
// Groups of TACACS+ servers as a method.
#pragma once

#include <memory>

#include "groups/logins.hpp"
#include "groups/record.hpp"
#include "groups/walk.hpp"

namespace service {

// `logins` must live as long as the backend.
std::shared_ptr<Backend> make_tacacs_backend(GroupContext context, Logins &logins);

// Sends a record to the servers in turn. The question gives the deadline and the trace's id.
// A pass means that a server has it, a failure that it can never be sent.
std::unique_ptr<Attempt> send_tacacs_record(const GroupContext &context, const Question &question,
                                            const Group &group, const AccountingRecord &record,
                                            Backend::Done done);

}  // namespace service
