// SPDX-License-Identifier: Apache-2.0
//
// One level of a directory: its items, and once each the directories below it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "database.hpp"

namespace sysdb_lmdb {

struct Entry {
    std::string name;  // relative to the directory; a directory's ends in '/'
    std::uint32_t type;
};

// The object of a sysdb_list_t.
struct Listing {
    std::vector<Entry> entries;
    std::size_t next = 0;
};

// "" matches every name; otherwise '*' matches any bytes, '?' one byte. The
// trailing slash of a directory's name is ignored.
bool name_matches(std::string_view pattern, std::string_view name);

// SYSDB_ERR_NOT_FOUND when nothing is below the directory and it has no marker.
// With root, the directory of a bind point, an empty listing instead.
cerrno list_directory(const Key &directory, bool root, std::string_view pattern, Listing &listing);

// SYSDB_ERR_NOT_FOUND when there is no entry.
cerrno last_entry(const Key &directory, Entry &entry);

}  // namespace sysdb_lmdb
