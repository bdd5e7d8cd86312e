// SPDX-License-Identifier: Apache-2.0
//
// A method list as programs get it from the library, which replaces server groups by their numbers: one
// group without a number makes the whole lookup fail.

#pragma once

#include <string>
#include <vector>

#include "config/method_lists.hpp"

namespace aaactl {

// What a program gets that looks the list up.
struct ClientView {
    cerrno rc = AAA_OK;
    std::vector<uint32_t> methods;  // server groups as numbers, up to the first empty place
};
ClientView look_up(const MethodList &list);

// What a list without a method that works means for requests. aaad does not use a configuration in which the
// default list of logins has none.
const char *consequence_of_failure(const MethodList &list);
// What a failed lookup means. Only programs that ask the library look lists up.
const char *consequence_of_failed_lookup(const std::string &function);
// Why the lookup fails, and what it means: "the lookup fails: CODE; no method is tried, ...".
std::string failure_text(const MethodList &list, cerrno rc);
// What a lookup that succeeds gives other than the list says, because the number of a group is not that of
// the group alone.
struct NumberFault {
    bool is_lock_out = false;  // no method of the list is asked
    std::string text;          // "" when there is none
};
NumberFault number_fault(const MethodList &list);
// What to do when the lookup fails, as a command where one does it.
std::string failure_remedy(const MethodList &list);

}  // namespace aaactl
