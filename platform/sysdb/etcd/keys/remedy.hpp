// SPDX-License-Identifier: Apache-2.0
//
// What an administrator does about a fault that a server, libcurl or the database reported.
#pragma once

#include <string>
#include <string_view>

namespace sysdb_etcd {

// A sentence, mostly with a command; empty for a fault that passes or that is not known.
std::string remedy_of(std::string_view fault, const std::string &prefix);

}  // namespace sysdb_etcd
