// SPDX-License-Identifier: Apache-2.0
//
// The places of servers, settings and lists among the items, for both directions.

#pragma once

#include <string>
#include <vector>

#include "running_config/statements.hpp"

namespace aaactl {

// An entry of a list of servers, as it is stored: DIRECTORY INDEX "/" ENTRY, with '/' at the end of a
// directory.
struct StoredServer {
    std::string path;
    std::string directory;   // "server/", "server-private/" or "host/", below the owner's path
    std::string index_text;  // "0x1"
    std::optional<uint32_t> index;
    std::string entry;  // without that '/'

    // The entry up to its first comma.
    std::string host() const { return entry.substr(0, entry.find(',')); }
};

// The directories that hold servers of the owner, in the order in which clients read them.
std::vector<std::string> server_directories(const Owner &owner);
// The servers in one of them. Items of another form are left out.
std::vector<StoredServer> stored_servers(const Items &items, const Owner &owner,
                                         const std::string &directory);
// The groups below which something is stored, by protocol and name.
std::vector<Owner> group_owners(const Items &items);
// Whether anything is stored below the directory.
bool any_below(const Items &items, const std::string &directory);

std::string index_text(uint32_t index);
// The tuple of a list.
Item list_item(const ListStatement &list);
// The path of a server that the statement adds.
std::string server_path(const ServerStatement &server, uint32_t index);

}  // namespace aaactl
