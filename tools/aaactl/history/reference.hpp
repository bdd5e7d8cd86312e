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

// Failure(not_found) when there is no database at all.
void check_database_exists(Database &database);

// Who made it, or found what others had changed without a commit: "alice (as root)", "found by alice".
std::string by_text(const history::Commit &commit);
// The same, and from where: "by alice (as root) from 192.0.2.7, pts/0".
std::string author_text(const history::Commit &commit);
// Which commit waits: the head knows it; nothing when that cannot be read.
std::optional<uint32_t> waiting_commit(const history::Store &store);
// "waiting", "confirmed", "reverted"; "unknown" when only the record says that the commit waits; "" if it
// needed no confirmation.
std::string confirmation_of(const history::Commit &commit, std::optional<uint32_t> waiting);
inline constexpr char kUnknown[] = "unknown";
inline constexpr char kUnknownText[] =
    "it does not wait any more, and whether it was confirmed is not recorded";
// Why it exists: its label, or what kind it is.
std::string kind_text(const history::Commit &commit);
Json commit_json(const history::Commit &commit, std::optional<uint32_t> waiting);

}  // namespace aaactl
