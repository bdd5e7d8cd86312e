// SPDX-License-Identifier: Apache-2.0
//
// Checks of method lists, server groups, lines and keys.

#pragma once

#include "config/findings.hpp"
#include "config/method_lists.hpp"

namespace aaactl {

// Whether the method can answer: a group has to exist and have a number and servers; another method has to
// suit the function, and have servers if it needs them.
bool method_works(Database &database, const std::string &function, const Method &method);

// What lint finds in the whole configuration.
struct Linted {
    Findings findings;
    size_t lists = 0;   // that were checked
    size_t groups = 0;  // likewise
};
Linted lint_configuration();

// Checks a list by itself; of its groups, only whether they exist.
void check_list(Database &database, const MethodList &list, Findings &findings);
// Checks a group by itself; `used`: a method list names it.
void check_group(Database &database, const Group &group, bool used, Findings &findings);
// Whether the servers that a protocol has without a group have keys; `used`: a method list asks them.
void check_protocol_keys(Database &database, const Protocol &protocol, bool used, Findings &findings);
// Whether the stored key at the path can be used.
void check_key_at(Database &database, const std::string &path, Findings &findings);
// Checks every entry of a list of servers.
void check_servers(const std::vector<Server> &servers, Findings &findings);

// Checks the file that assigns lists to lines, and whether its lists exist.
void check_lines(Database &database, Findings &findings);
// Checks the server keys of the whole AAA configuration, and reports unreadable items that no finding names
// yet.
void check_items(Database &database, Findings &findings);

// Everything that "lint" checks.
Findings check_all(Database &database);

}  // namespace aaactl
