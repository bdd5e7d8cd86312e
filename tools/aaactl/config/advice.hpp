// SPDX-License-Identifier: Apache-2.0
//
// Commands that remedies of findings advise, with all their arguments: a user pastes them into a shell.

#pragma once

#include <string>
#include <vector>

#include "config/groups.hpp"
#include "config/method_lists.hpp"

namespace aaactl {

// `what`, and the command that stores these methods as the list. Methods that the command would refuse, and
// groups that do not exist, are left out; a list that would be empty gets the method "local", or "syslog" for
// accounting.
std::string set_list(const std::string &what, const MethodList &list, std::vector<Method> methods);

// `what`, and the command that gives the group another number; its servers and keys remain.
std::string renumber_group(const std::string &what, const Group &group);
// `what`, and the command "sg add", "sg key" or "sg del" for the group.
std::string change_group(const std::string &what, const char *subcommand, const Group &group);

// `what`, and the commands that make the group under another name, ask for its keys, and delete this one.
std::string rename_group(const std::string &what, Database &database, const Group &group);

// `what`, and the command that deletes the item. Where that cannot name the path, a whole tree is read and
// stored without the item.
std::string delete_item(const std::string &what, const std::string &path);
// `what`, and the command that asks for a key and stores it sealed at the path.
std::string seal_new(const std::string &what, const std::string &path);
// `what`, and the command that replaces the clear key at the path by the sealed key, if commands print the
// key as it is.
std::string seal_item(const std::string &what, const std::string &path, const std::string &key);

}  // namespace aaactl
