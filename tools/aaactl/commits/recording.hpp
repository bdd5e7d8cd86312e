// SPDX-License-Identifier: Apache-2.0
//
// Commits in the history, made together with the changes that they record.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "commits/commit_options.hpp"
#include "database/sysdb_apply.hpp"
#include "store/store.hpp"

namespace aaactl {

inline constexpr char kCfgTree[] = "/cfg/";

Failure history_failure(const history::Error &error);

// Runs the call, and throws its history::Error as a Failure.
template <typename Call>
auto with_history(Call call) {
    try {
        return call();
    } catch (const history::Error &error) {
        throw history_failure(error);
    }
}

// The library's store on this database.
history::Store store_of(Database &database);

// Items with absolute paths, for the history.
history::State state_of(const std::map<std::string, Item> &items, const std::set<std::string> &unreadable);
// The inverse.
std::map<std::string, Item> items_of(const history::Items &items);

// Escaped, and cut with "..." when it has more bytes: every member of the database's group can store records
// with any text.
std::string shown_text(const std::string &text, size_t most = kLongestLabel);
// "commit 7 (before-upgrade)"
std::string commit_text(const history::Commit &commit);

// As history::change(), for commands.
void change_history(const history::Store &store, const history::Make &make);

// After a change without a commit: a note while a commit waits, because going back takes this change back
// too.
void note_goes_back_too(Output &out, Database &database);

inline constexpr char kHistoryHead[] = "/cfg/.history/head";
// The command that deletes the commit with this record, ".../commit/0x1/record", and no other.
std::string deletion_of_record(const std::string &path);

// The command that ends the waiting, where nothing can go back from it.
inline constexpr char kOnlyConfirm[] =
    "cannot be reverted, because the state before it is missing or damaged; \"aaactl confirm\" ends the "
    "waiting";

// Failure(negative) while another commit waits for its confirmation: names its author, and what to do. `why`
// follows, such as "; what is refused would ...".
void refuse_while_waiting(const history::Store &store, const history::Head &head,
                          const std::string &why = "");

// Whether going back from the commit that waits would be impossible without what is at the path, or below it
// when it ends in '/'.
bool is_needed_to_go_back(const history::Store &store, const history::Head &head, const std::string &path);

struct Recorded {
    uint32_t commit = 0;
    uint32_t outside = 0;  // the commit of what was changed before without one; 0: none
    uint32_t before = 0;   // the commit whose state was in force before; 0: it still is
    std::optional<history::Deadline> deadline;
};
// A commit of `after`. Changes between the last commit and `before` become one of their own. With minutes
// in the options the commit waits, and the state before it is in force again unless it is confirmed.
// `target` is the commit whose state it is, of a rollback. Failure for a `before` that is not of one moment.
Recorded record(history::Writing &writing, const history::Head &head, history::Kind kind,
                const CommitOptions &options, const history::State &before, const history::State &after,
                uint32_t target = 0);
// The head on which a change with its own commit is made. It is read before the state that the change is
// made from: then the state belongs to that head or to a later one, and a later one is a conflict.
// Failure(negative) while another commit waits.
history::Head head_for_commit(Database &database);
// The same as record() for a change of the database that is made as one with its commit.
Recorded record_change(Database &database, const history::Head &head, history::Kind kind,
                       const CommitOptions &options, const history::State &before,
                       const history::State &after, Changes &changes, uint32_t target = 0);
void append(const history::Changes &more, Changes &changes);

// Members "commit", "outside" and "confirm_until" of the command's document.
void add_recorded(Json &document, const Recorded &recorded);
// "commit 7", or "commit 7; ... commit 6". A line on how to confirm it follows.
void print_recorded(Output &out, const Recorded &recorded);
// The same after a change without a commit, if the last commit has the state before.
void hint_recorded_before(Output &out, Database &database, const history::State &before);
// What follows a commit that is made. One that waits is reverted by aaad or watch-confirm, which is said when
// neither runs; of another one, how to go back to the state before.
void follow_commit(Output &out, Database &database, const Recorded &recorded);

}  // namespace aaactl
