// SPDX-License-Identifier: Apache-2.0
//
// What is damaged in the history.

#pragma once

#include <string>
#include <vector>

#include "database/database.hpp"

namespace aaactl {

struct Damage {
    std::string path;
    std::string text;
    std::string remedy;
    bool stops_commits;  // none can be made; otherwise only those that are damaged are lost
};
// Of its head, and of the record and the state of every commit.
std::vector<Damage> history_damage(Database &database);

}  // namespace aaactl
