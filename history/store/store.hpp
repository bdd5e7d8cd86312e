// SPDX-License-Identifier: Apache-2.0
//
// Reads the history, and makes the changes of the database that add to it.
//
// A commit is one change of the database: it expects the head, so of two that are made at a time the second
// one is refused by the database, reads again and sees the first one.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "store/items.hpp"
#include "store/record.hpp"

namespace history {

struct Limits {
    std::uint32_t commits = 50;
    std::uint64_t bytes = 16 * 1024 * 1024;  // of the stored states
};
// Names of the settings, below "gl/aaa/", and their ranges.
inline constexpr char kLimitCommits[] = "history/commits";
inline constexpr char kLimitKilobytes[] = "history/kilobytes";
inline constexpr std::uint32_t kLeastCommits = 2;
inline constexpr std::uint32_t kMostCommits = 10'000;
inline constexpr std::uint32_t kLeastKilobytes = 64;
inline constexpr std::uint32_t kMostKilobytes = 1024 * 1024;

// All functions throw Error.
class Store {
  public:
    // The connection is bound at "/cfg/", and stays the caller's.
    explicit Store(sysdb_conn_t cfg) : cfg_(cfg) {}
    sysdb_conn_t connection() const { return cfg_; }

    // One that is damaged, missing or impossible is made again from the commits: the number of the last one,
    // and which one waits, for as many minutes as it was given, from when a watcher sees it.
    Head head() const;
    // Oldest first. Records that cannot be read are left out; `damaged` gets their paths.
    std::vector<Commit> commits(std::vector<std::string> *damaged = nullptr) const;
    // Error(missing) if there is no such commit (any more).
    Commit commit(std::uint32_t number) const;
    // Numbers of stored commits that the history has not given: far after its last one. They are not used
    // when the next number is chosen.
    std::vector<std::uint32_t> out_of_sequence(const Head &head) const;
    // The plain form of its items.
    std::string plain_state(const Commit &commit) const;
    Items items(const Commit &commit) const;
    Limits limits() const;

  private:
    Head rebuilt_head() const;
    std::set<std::uint32_t> numbers() const;

    sysdb_conn_t cfg_;
};

// The changes of the history that belong to one change of the database.
class Writing {
  public:
    Writing(const Store &store, const Head &head);

    // Adds a commit of these items; its number, sizes and parts are filled in. Error(refused) when it does
    // not fit the limits of a database.
    std::uint32_t add(Commit commit, const State &state);
    // Whether the items are those of the last commit.
    bool is_recorded(const State &state);
    // The commit is reverted to the base at the deadline. Room for that is kept in the database until then:
    // it may be full by that time. Error(refused) when the base cannot be used.
    void wait(std::uint32_t commit, std::uint32_t base, const Deadline &deadline);
    // The waiting commit has been confirmed or reverted.
    void end_waiting(Ending ending, const std::string &by, std::int64_t time);

    // All changes: what the head is expected to be, the records, and commits beyond the limits deleted. The
    // last commit, the waiting one and its base stay.
    Changes finish();

  private:
    void put(const Commit &commit);
    Commit base_commit(std::uint32_t number) const;
    std::set<std::uint32_t> surplus(const std::vector<Commit> &stored) const;

    Store store_;
    Head before_;
    Head after_;
    Changes changes_;
    std::vector<Commit> added_;
    std::string last_plain_;
    bool last_is_known_ = false;
};

std::string head_path();
std::string commit_directory(std::uint32_t number);
// Of items without a meaning, which a revert deletes to have room.
std::string room_directory();
// The command that deletes what is stored of one commit, for messages: others remain.
std::string deletion_of(std::uint32_t number);
// Whether the history cannot do without it: the last one, the one that waits, and its base.
bool is_needed(const Commit &commit, const Head &head);
// The parts of a stored state, of sizes that every provider takes.
Changes state_changes(std::uint32_t number, const std::string &stored);

// Changes that give a commit other items: the same configuration, otherwise written. The caller makes them
// with those of a Writing, which expects the head: every change of the history changes it.
Changes rewritten(const Commit &commit, const Items &items);

// How often a whole operation is tried: each time another process has made its change.
inline constexpr int kAttempts = 50;
// Makes changes of the database on the state that is read for each try, and tries again when others change
// the same meanwhile. `make` may throw.
using Make = std::function<void(const Head &head, Changes &changes)>;
void change(const Store &store, const Make &make);

// A small change while a commit waits. What a change of an embedded database frees is used again by the one
// after the next, not before: so going back, or a confirmation, finds room from then on even if the disk is
// full.
void make_freed_usable(const Store &store);

}  // namespace history
