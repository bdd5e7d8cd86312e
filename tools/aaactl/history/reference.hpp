// SPDX-License-Identifier: Apache-2.0
//
// What the words of a command line mean: a commit by its number or its label, "last", or "running", which is
// what is stored now.

#pragma once

#include <optional>
#include <string>

#include "commits/recording.hpp"
#include "running_config/statements.hpp"

namespace aaactl {

// Text for the help of commands that take one.
inline constexpr char kReferenceHelp[] =
    "A commit: its number, its label (the newest that has it), or \"last\"";

// Failure(not_found) for a commit that does not exist, or no longer.
history::Commit find_commit(const history::Store &store, const std::string &word);

// A commit, or with "running" the present state.
struct Version {
    std::optional<history::Commit> commit;  // none: what is stored now
    Items items;

    std::string name() const;  // "commit 7 (before-upgrade)", "the running configuration"
    std::string word() const;  // "7", "running"
};
Version find_version(const history::Store &store, const std::string &word);

// Who made it and from where: "alice (as root) from 192.0.2.7, pts/0".
std::string author_text(const history::Commit &commit);
// Why it exists: its label, or what kind it is.
std::string kind_text(const history::Commit &commit);
Json commit_json(const history::Commit &commit);

}  // namespace aaactl
