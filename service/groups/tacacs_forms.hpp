// SPDX-License-Identifier: Apache-2.0
//
// Questions and records in the form of TACACS+, and what its answers mean.
#pragma once

#include <string>
#include <vector>

#include "backends/backend.hpp"
#include "groups/record.hpp"
#include "tacacs/client.hpp"

namespace service {

// Refers to the texts of the question.
tacacs::Subject tacacs_subject(const Question &question);
tacacs::Subject tacacs_subject(const AccountingRecord &record);

// "service=shell", and of a command "cmd=show", "cmd-arg=version". Blanks separate the words of a
// command.
std::vector<std::string> tacacs_rights_asked(const Question &question);
std::vector<std::string> tacacs_record(const AccountingRecord &record);

// Why a request with these cannot be sent; empty when it can. Nothing is ever cut: the server
// would decide about another command than the one that is run.
std::string tacacs_misfit(const tacacs::Subject &subject, const std::vector<std::string> &arguments);

// What a permission says. It is a refusal when it demands what cannot be done here (RFC 8907,
// 6.1), or replaces the command by another.
Outcome tacacs_rights(const tacacs::AuthorizationOutcome &answer, const std::vector<std::string> &asked);

}  // namespace service
