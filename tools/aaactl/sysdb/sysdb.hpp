// SPDX-License-Identifier: Apache-2.0
//
// What the commands on the system database share.

#pragma once

#include "cli/commands.hpp"
#include "database/database.hpp"

namespace aaactl {

// "path", "type" and "value", or "masked": true instead of a secret value. A directory has no value.
Json item_json(const Output &out, const std::string &path, const Item &item);
// The value, or the mask.
std::string shown_value(const Output &out, const std::string &path, const Item &item, bool plain = false);

// Of --all.
inline constexpr char kAllHelp[] = "Also what is hidden in /cfg/: the history of the configuration";

// Each adds its part of "sysdb"; add_sysdb() calls them.
void add_sysdb_watch(Command sysdb);
void add_sysdb_dump(Command sysdb);
void add_sysdb_load(Command sysdb);
void add_sysdb_diff(Command sysdb);

}  // namespace aaactl
