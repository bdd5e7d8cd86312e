// SPDX-License-Identifier: Apache-2.0
//
// The records of the history, as texts of lines "name value":
//
//     .history/head                       the number of the last commit, and which one waits
//     .history/commit/0x7/record          who, when, from where, why
//     .history/commit/0x7/state/0x1 ...   the stored form of the items, in parts
//
// In a value, control characters and the backslash are \n, \t, \\ and \xNN. Readers skip names that they do
// not know.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "store/author.hpp"
#include "store/deadline.hpp"
#include "store/items.hpp"

namespace history {

inline constexpr char kHistory[] = ".history/";

// How a commit came to be.
enum class Kind { commit, outside, load, edit, rollback, revert };
const char *word_of(Kind kind);

// Of a commit that has to be confirmed.
enum class Ending { none, waiting, confirmed, reverted };
const char *word_of(Ending ending);

struct Commit {
    std::uint32_t number = 0;
    std::int64_t time = 0;  // seconds since 1970
    Kind kind = Kind::commit;
    std::string label;
    std::string message;
    Author author;
    std::uint32_t target = 0;  // of a rollback or revert: the commit whose state it is
    std::uint32_t minutes = 0;
    Ending ending = Ending::none;
    std::string ended_by;
    std::int64_t ended = 0;
    std::uint64_t items = 0;
    std::uint64_t left_out = 0;  // items that could not be read
    std::uint64_t plain_bytes = 0;
    std::uint64_t bytes = 0;  // stored, of the state
    std::uint32_t parts = 0;

    bool operator==(const Commit &other) const = default;
};
std::string text_of(const Commit &commit);
// Nothing for a text that is not a record.
std::optional<Commit> commit_from(const std::string &text);

// The commit that is reverted unless it is confirmed, and the one that is then in force again.
struct Waiting {
    std::uint32_t commit = 0;
    std::uint32_t base = 0;
    Deadline deadline;
    bool operator==(const Waiting &other) const = default;
};

struct Head {
    std::uint32_t last = 0;  // 0: there is no commit
    std::optional<Waiting> waiting;
    std::uint32_t highest = 0;  // number of a commit that is stored, readable or not: no number is used twice
    bool rebuilt = false;       // the item is damaged or missing, so it was made from the commits
    std::optional<Item> stored;  // the item as it was read, which a change expects; none: it does not exist

    bool operator==(const Head &other) const { return last == other.last && waiting == other.waiting; }
};
std::string text_of(const Head &head);
// Nothing for a text that is not a head. `highest` and `stored` are the reader's.
std::optional<Head> head_from(const std::string &text);

}  // namespace history
