// SPDX-License-Identifier: Apache-2.0
//
// The numbers of server groups, by which programs ask the library for a group. Two maps hold them:
//
//   sg_name_map/PROTOCOL/NAME       the number
//   sg_num_map/PROTOCOL/0xNUMBER    the name
//
// aaad and any number of aaactl may change them at the same time. A change is one transaction that
// expects the maps to be as they were read, and is planned again when another process was faster. So
// no two groups of a protocol get one number, and the two maps agree.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "aaa/types.h"
#include "platform/sysdb.h"

namespace group_numbers {

// The directory of both maps, at which the connection of every call is bound.
inline constexpr char kMaps[] = "/oper/aaa/gl/group-server/";

struct Group {
    std::string protocol;  // "radius", "tacacs" or "diameter"
    std::string name;
};

struct Number {
    cerrno rc = 0;  // not 0: why the group has no number; the other groups have theirs
    std::uint32_t number = 0;
    bool is_new = false;      // it had none, or another one
    bool is_used_up = false;  // why it has none: every number of the protocol belongs to a group
};

// Publishes the numbers of groups, one element of `numbers` for each. A group that has a number keeps it,
// unless it is damaged, out of its protocol's range, or belongs to another group of the protocol; an entry of
// sg_num_map that is missing or names another group is set. Nothing is taken from a group that gets no
// other number. AAA_OK, or why nothing was changed, and `numbers` is then empty.
cerrno publish(sysdb_conn_t maps, const std::vector<Group> &groups, std::vector<Number> &numbers);

// Removes the numbers of groups; those that have none are passed over. AAA_OK, or why nothing was changed.
cerrno withdraw(sysdb_conn_t maps, const std::vector<Group> &groups);

}  // namespace group_numbers
