// SPDX-License-Identifier: Apache-2.0
//
// What can be wrong with method lists, server groups, lines and keys.

#pragma once

#include "config/findings.hpp"
#include "config/method_lists.hpp"

namespace aaactl {

// Whether anybody can answer: a group that exists, has a number and servers; for other methods, that there is
// such a method, and servers where it needs some.
bool method_works(Database &database, const Method &method);

// A list by itself; its groups are looked at only as far as they exist.
void check_list(Database &database, const MethodList &list, Findings &findings);
// A group by itself; `used`: a method list names it.
void check_group(const Group &group, bool used, Findings &findings);
// An entry of a list of servers, each server once.
void check_servers(const std::vector<Server> &servers, Findings &findings);

// The file that gives lines their lists, and the lists that it names.
void check_lines(Database &database, Findings &findings);
// Server keys anywhere in the AAA configuration, and items that cannot be read, but for those that findings
// are about already.
void check_items(Database &database, Findings &findings);

}  // namespace aaactl
