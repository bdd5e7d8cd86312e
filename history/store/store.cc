// SPDX-License-Identifier: Apache-2.0

#include "store/store.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <utility>

#include "store/snapshot.hpp"

namespace history {

namespace {

// Providers of many machines send each value over the network in one piece.
constexpr std::size_t kPart = 256 * 1024;
constexpr std::uint32_t kStateType = 0x48495354;  // no other program stores such items
// Numbers are given one by one. One that is farther from those before it was made by another program, and
// must not use up the numbers: a revert needs one.
constexpr std::uint32_t kMostGap = 1'000'000;
// Of what is kept free for a revert. A transaction of a cluster has 1.5 MiB at most by default.
constexpr std::uint64_t kLeastRoom = 64 * 1024;
constexpr std::uint64_t kMostRoom = 512 * 1024;

std::string hexadecimal(std::uint32_t number) {
    char text[16] = "0x";
    const auto end = std::to_chars(text + 2, text + sizeof text, number, 16).ptr;
    return {text, end};
}

std::string record_path(std::uint32_t number) {
    return commit_directory(number) + "record";
}

std::string part_path(std::uint32_t number, std::uint32_t part) {
    return commit_directory(number) + "state/" + hexadecimal(part);
}

// The text of an item, without its NUL.
std::string text_of_item(const Item &item) {
    return item.type == SYSDB_TYPE_STRING && !item.bytes.empty() ? item.bytes.substr(0, item.bytes.size() - 1)
                                                                 : "";
}

Error damaged(const std::string &path, const std::string &remedy) {
    return {Error::Why::damaged, kTree + path + ": it is not what the history stores there; " + remedy};
}

bool is_about_value(const Error &error) {
    return error.code() == SYSDB_ERR_BAD_VALUE || error.code() == SYSDB_ERR_BAD_PATH;
}

std::string only_that(std::uint32_t number) {
    return deletion_of(number) + " deletes that commit only";
}

Error damaged_state(const Commit &commit, const Error &error) {
    return {error.why(), "commit " + std::to_string(commit.number) + ": " + error.what() + "; " +
                             only_that(commit.number)};
}

// Whether this program may have stored it. The last commit may be deleted, but a number that is far from all
// that are stored has not been given, nor one after the last.
bool is_possible(const Head &head, const std::set<std::uint32_t> &stored) {
    const auto after = stored.upper_bound(head.last);
    const std::uint32_t nearest = after == stored.begin() ? 0 : *std::prev(after);
    return head.last != 0 && head.last != UINT32_MAX && head.last - nearest <= kMostGap &&
           (!head.waiting || head.waiting->commit <= head.last);
}

// Of the numbers from the last one on, without those that are out of the sequence.
std::uint32_t highest(const std::set<std::uint32_t> &stored, std::uint32_t last) {
    std::uint32_t highest = last;
    for (auto next = stored.upper_bound(last); next != stored.end() && *next - highest <= kMostGap; ++next) {
        highest = *next;
    }
    return highest;
}

std::uint32_t setting(sysdb_conn_t cfg, const char *name, std::uint32_t usual, std::uint32_t least,
                      std::uint32_t most) {
    Item item;
    std::uint32_t value = usual;
    if (read_item(cfg, std::string(kConfiguration) + name, item) && item.type == SYSDB_TYPE_U32 &&
        item.bytes.size() == sizeof value) {
        std::memcpy(&value, item.bytes.data(), sizeof value);
    }
    return std::clamp(value, least, most);
}

}  // namespace

std::string head_path() {
    return std::string(kHistory) + "head";
}

std::string commit_directory(std::uint32_t number) {
    return std::string(kHistory) + "commit/" + hexadecimal(number) + "/";
}

std::string room_directory() {
    return std::string(kHistory) + "room/";
}

std::string deletion_of(std::uint32_t number) {
    return "\"aaactl sysdb del --force -r " + (kTree + commit_directory(number)) + "\"";
}

bool is_needed(const Commit &commit, const Head &head) {
    return commit.number == head.last ||
           (head.waiting && (commit.number == head.waiting->commit || commit.number == head.waiting->base));
}

Changes state_changes(std::uint32_t number, const std::string &stored) {
    Changes changes;
    for (std::size_t at = 0; at < stored.size(); at += kPart) {
        changes.push_back({SYSDB_CHANGE_SET,
                           part_path(number, static_cast<std::uint32_t>(at / kPart + 1)),
                           {kStateType, stored.substr(at, kPart)}});
    }
    return changes;
}

Changes rewritten(const Commit &commit, const Items &items) {
    Commit after = commit;
    const std::string plain = plain_form(items);
    const std::string stored = compressed(plain);
    Changes changes = state_changes(commit.number, stored);
    after.plain_bytes = plain.size();
    after.bytes = stored.size();
    after.parts = static_cast<std::uint32_t>(changes.size());
    changes.push_back({SYSDB_CHANGE_SET, record_path(commit.number), text_item(text_of(after))});
    changes.push_back({SYSDB_CHANGE_PRUNE, commit_directory(commit.number) + "state/", {}});
    return changes;
}

// ---- reading

Head Store::head() const {
    std::optional<Item> item(std::in_place);
    try {
        if (!read_item(cfg_, head_path(), *item)) {
            item.reset();
        }
    } catch (const Error &error) {
        if (!is_about_value(error)) {
            throw;
        }
        throw damaged(head_path(), "\"aaactl sysdb del --force " + (kTree + head_path()) +
                                       "\" lets it be made again from the commits");
    }
    std::optional<Head> head = item ? head_from(text_of_item(*item)) : std::nullopt;
    const std::set<std::uint32_t> stored = numbers();
    if (!head || !is_possible(*head, stored)) {
        head = rebuilt_head();
        head->rebuilt = item || head->last != 0;
    }
    head->stored = std::move(item);
    head->highest = highest(stored, head->last);
    return *std::move(head);
}

Head Store::rebuilt_head() const {
    Head head;
    std::uint32_t before = 0;
    for (const Commit &commit : commits()) {
        const bool is_far = head.last != 0 && commit.number - head.last > kMostGap;
        if (commit.number <= head.last || commit.number == UINT32_MAX || is_far) {
            continue;
        }
        before = std::exchange(head.last, commit.number);
        if (commit.ending == Ending::waiting && before != 0) {
            // The machine's clock at the time is not known any more, which is as if it was another machine.
            const Deadline deadline{"", "", 0, commit.time + std::int64_t{commit.minutes} * 60,
                                    commit.minutes};
            head.waiting = Waiting{commit.number, before, deadline};
        }
    }
    return head;
}

std::set<std::uint32_t> Store::numbers() const {
    std::set<std::uint32_t> numbers;
    for (const std::string &name : read_names(cfg_, std::string(kHistory) + "commit/")) {
        std::uint32_t number = 0;
        const char *end = name.data() + name.size();
        if (name.starts_with("0x") && std::from_chars(name.data() + 2, end, number, 16).ec == std::errc()) {
            numbers.insert(number);
        }
    }
    return numbers;
}

std::vector<std::uint32_t> Store::out_of_sequence(const Head &head) const {
    const std::set<std::uint32_t> all = numbers();
    return {all.upper_bound(head.highest), all.end()};
}

Commit Store::commit(std::uint32_t number) const {
    Item item;
    std::optional<Commit> commit;
    try {
        if (!read_item(cfg_, record_path(number), item)) {
            throw Error(Error::Why::missing, "there is no commit " + std::to_string(number));
        }
        commit = commit_from(text_of_item(item));
    } catch (const Error &error) {
        if (!is_about_value(error)) {
            throw;
        }
    }
    if (!commit || commit->number != number) {
        throw damaged(record_path(number), only_that(number));
    }
    return *commit;
}

std::vector<Commit> Store::commits(std::vector<std::string> *damaged) const {
    std::vector<Commit> commits;
    for (const std::string &name : read_names(cfg_, std::string(kHistory) + "commit/")) {
        const std::string path = std::string(kHistory) + "commit/" + name + "record";
        Item item;
        std::optional<Commit> commit;
        try {
            if (!read_item(cfg_, path, item)) {
                continue;  // deleted meanwhile
            }
            commit = commit_from(text_of_item(item));
        } catch (const Error &error) {
            if (!is_about_value(error)) {
                throw;
            }
        }
        if (commit && commit_directory(commit->number) + "record" == path) {
            commits.push_back(*std::move(commit));
        } else if (damaged != nullptr) {
            damaged->push_back(kTree + path);
        }
    }
    return commits;
}

std::string Store::plain_state(const Commit &commit) const {
    std::string stored;
    for (std::uint32_t part = 1; part <= commit.parts; ++part) {
        Item item;
        bool is_there = false;
        try {
            is_there = read_item(cfg_, part_path(commit.number, part), item);
        } catch (const Error &error) {
            if (!is_about_value(error)) {
                throw;
            }
            throw damaged(part_path(commit.number, part), only_that(commit.number));
        }
        if (!is_there) {
            throw Error(Error::Why::damaged, "commit " + std::to_string(commit.number) +
                                                 ": a part of its state is missing; " +
                                                 only_that(commit.number));
        }
        stored += item.bytes;
    }
    try {
        return decompressed(stored);
    } catch (const Error &error) {
        throw damaged_state(commit, error);
    }
}

// Every member of the database's group can store a state of other paths. Going back must not write them.
Items Store::items(const Commit &commit) const {
    const std::string plain = plain_state(commit);
    try {
        Items items = from_plain_form(plain);
        for (const auto &[path, item] : items) {
            if (!path.starts_with(kConfiguration)) {
                throw Error(Error::Why::damaged,
                            "its state has items outside of " + std::string(kTree) + kConfiguration);
            }
        }
        return items;
    } catch (const Error &error) {
        throw damaged_state(commit, error);
    }
}

Limits Store::limits() const {
    const Limits usual;
    return {
        setting(cfg_, kLimitCommits, usual.commits, kLeastCommits, kMostCommits),
        std::uint64_t{1024} * setting(cfg_, kLimitKilobytes, static_cast<std::uint32_t>(usual.bytes / 1024),
                                      kLeastKilobytes, kMostKilobytes)};
}

// ---- writing

Writing::Writing(const Store &store, const Head &head) : store_(store), before_(head), after_(head) {
    changes_.push_back({SYSDB_CHANGE_EXPECT, head_path(), head.stored.value_or(Item{SYSDB_TYPE_ANY, {}})});
}

bool Writing::is_recorded(const State &state) {
    if (before_.last == 0) {
        return false;
    }
    if (!last_is_known_) {
        try {
            last_plain_ = store_.plain_state(store_.commit(before_.last));
        } catch (const Error &error) {
            if (error.why() == Error::Why::database) {
                throw;
            }
            return false;  // it is damaged: better recorded twice than not at all
        }
        last_is_known_ = true;
    }
    return plain_form(state.items) == last_plain_;
}

void Writing::put(const Commit &commit) {
    changes_.push_back({SYSDB_CHANGE_SET, record_path(commit.number), text_item(text_of(commit))});
}

std::uint32_t Writing::add(Commit commit, const State &state) {
    after_.last = std::max(after_.last, after_.highest);
    if (after_.last == UINT32_MAX) {
        throw Error(Error::Why::refused,
                    "there is no number after that of the last commit, which this program did not make; "
                    "\"aaactl sysdb del --force -r " +
                        std::string(kTree) + kHistory +
                        "\" deletes the history, and leaves the configuration as it is");
    }
    commit.number = after_.highest = ++after_.last;
    const std::string plain = plain_form(state.items);
    const std::string stored = compressed(plain);
    const Changes parts = state_changes(commit.number, stored);
    commit.items = state.items.size();
    commit.left_out = state.unreadable.size();
    commit.plain_bytes = plain.size();
    commit.bytes = stored.size();
    commit.parts = static_cast<std::uint32_t>(parts.size());
    changes_.insert(changes_.end(), parts.begin(), parts.end());
    put(commit);
    added_.push_back(std::move(commit));
    return after_.last;
}

// Without its base a commit could not be reverted, so it is read now.
Commit Writing::base_commit(std::uint32_t number) const {
    for (const Commit &commit : added_) {
        if (commit.number == number) {
            return commit;
        }
    }
    try {
        Commit commit = store_.commit(number);
        if (!last_is_known_ || number != before_.last) {
            store_.items(commit);
        }
        return commit;
    } catch (const Error &error) {
        if (error.why() == Error::Why::database) {
            throw;
        }
        throw Error(Error::Why::refused, std::string("there would be no state to go back to: ") +
                                             error.what() + "; make a commit without --confirm first");
    }
}

void Writing::wait(std::uint32_t commit, std::uint32_t base, const Deadline &deadline) {
    const Commit back = base_commit(base);
    after_.waiting = Waiting{commit, base, deadline};
    // The items of the base, and two states in the history.
    const std::uint64_t bytes =
        std::min<std::uint64_t>(kMostRoom, kLeastRoom + back.plain_bytes + 2 * back.bytes);
    std::uint32_t part = 0;
    for (std::uint64_t at = 0; at < bytes; at += kPart) {
        changes_.push_back({SYSDB_CHANGE_SET,
                            room_directory() + hexadecimal(++part),
                            {kStateType, std::string(std::min<std::uint64_t>(kPart, bytes - at), '\0')}});
    }
}

void Writing::end_waiting(Ending ending, const std::string &by, std::int64_t time) {
    if (!after_.waiting) {
        return;
    }
    try {
        Commit waited = store_.commit(after_.waiting->commit);
        waited.ending = ending;
        waited.ended_by = by;
        waited.ended = time;
        put(waited);
    } catch (const Error &error) {  // without its record it is ended too
        if (error.why() == Error::Why::database) {
            throw;
        }
    }
    after_.waiting.reset();
    changes_.push_back({SYSDB_CHANGE_PRUNE, room_directory(), {}});
}

std::set<std::uint32_t> Writing::surplus(const std::vector<Commit> &stored) const {
    const Limits limits = store_.limits();
    std::uint64_t bytes = 0;
    for (const Commit &commit : stored) {
        bytes += commit.bytes;
    }
    for (const Commit &commit : added_) {
        bytes += commit.bytes;
    }
    std::size_t count = stored.size() + added_.size();
    std::set<std::uint32_t> surplus;
    for (const Commit &commit : stored) {
        if (count <= limits.commits && bytes <= limits.bytes) {
            break;
        }
        if (!is_needed(commit, after_)) {
            surplus.insert(commit.number);
            --count;
            bytes -= commit.bytes;
        }
    }
    return surplus;
}

Changes Writing::finish() {
    if (!added_.empty()) {
        for (const std::uint32_t number : surplus(store_.commits())) {
            changes_.push_back({SYSDB_CHANGE_PRUNE, commit_directory(number), {}});
        }
    }
    changes_.push_back({SYSDB_CHANGE_SET, head_path(), text_item(text_of(after_))});
    return std::move(changes_);
}

// ---- whole operations

void change(const Store &store, const Make &make) {
    for (int attempt = 1;; ++attempt) {
        const Head head = store.head();
        Changes changes;
        make(head, changes);
        if (changes.empty()) {
            return;
        }
        std::size_t failed = changes.size();
        const cerrno rc = apply(store.connection(), changes, failed);
        if (rc == 0) {
            return;
        }
        // An item that is deleted may have been deleted by another process.
        const bool meanwhile = rc == SYSDB_ERR_CONFLICT || rc == SYSDB_ERR_NOT_FOUND;
        if (!meanwhile || attempt == kAttempts) {
            fail(failed < changes.size() ? changes[failed].path : "", rc);
        }
    }
}

void make_freed_usable(const Store &store) {
    change(store, [](const Head &head, Changes &changes) {
        if (head.waiting) {
            changes = {
                {SYSDB_CHANGE_EXPECT, head_path(), head.stored.value_or(Item{SYSDB_TYPE_ANY, {}})},
                {SYSDB_CHANGE_SET, room_directory() + hexadecimal(0), {kStateType, std::string(1, '\0')}}};
        }
    });
}

}  // namespace history
