// SPDX-License-Identifier: Apache-2.0
//
// Accounting records in the form of the journal, which knows sessions, destinations and bytes.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "backends/backend.hpp"
#include "config/snapshot.hpp"
#include "groups/record.hpp"
#include "records/record.hpp"

namespace service {

// The name of a group in the journal. It has no protocol: when a group gets servers of another
// one, its records go there. "radius/all" for the servers of a protocol that are in no group.
std::string destination_of(const Group &group);

// Records of a user's session with this number go one after the other.
std::string session_name(const AccountingRecord &record, std::uint32_t client_pid);

// A record as it is kept. One of a command opens and closes no session: it has the number of
// the session in which the command runs.
accounting::Record journal_record(const Question &question, const AccountingRecord &record,
                                  std::vector<std::string> destinations);

// Gives a record what the one that opened its session says, where a restart of the service has
// lost it: when the session began, and the Class of the login.
void complete(AccountingRecord &record, const accounting::Record &opened, const accounting::Moment &now);

// Records that the service makes itself of an open session: one that it is still open, and one
// that closes it because its program has gone. Null when the opening one cannot be read.
std::optional<accounting::Record> interim_record(const accounting::Record &opened,
                                                 const accounting::Moment &now, std::time_t wall);
std::optional<accounting::Record> closing_record(const accounting::Record &opened,
                                                 const accounting::Moment &now, std::time_t wall);

}  // namespace service
