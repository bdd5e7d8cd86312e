// SPDX-License-Identifier: Apache-2.0
//
// What items of the AAA configuration refer to: a method list to server groups, a setting of one server to
// that server, a setting to its group; and groups to
// their names, which one protocol only may have. The service skips what refers to nothing.

#pragma once

#include <functional>
#include <set>
#include <string>

#include "database/database.hpp"

namespace aaactl {

// What is stored, or will be. A directory's path ends in '/'.
struct ConfigPaths {
    std::set<std::string> paths;
    // A group that programs find by its number although it is not configured.
    std::function<bool(const std::string &group)> is_published = [](const std::string &) { return false; };
    // Whether two protocols may not have groups of one name.
    bool checks_names = true;
};

// The paths below /cfg/gl/aaa/.
ConfigPaths config_paths(Database &database);

// "", or what the item refers to that does not exist, with a suggestion. Items that refer to nothing have no
// fault.
std::string reference_fault(const std::string &path, const Item &item, const ConfigPaths &config);

}  // namespace aaactl
