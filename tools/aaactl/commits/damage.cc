// SPDX-License-Identifier: Apache-2.0

#include "commits/damage.hpp"

#include <algorithm>
#include <optional>

#include "commits/recording.hpp"
#include "store/revert.hpp"

namespace aaactl {
namespace {

// What has to be done before another commit can be made.
std::string end_of_waiting(const history::Store &store, const history::Head &head) {
    return !head.waiting ? ""
           : history::can_revert(store, *head.waiting)
               ? "end the waiting with \"aaactl confirm\" or \"aaactl cancel\", then "
               : "end the waiting with \"aaactl confirm\", then ";
}

// The commit that waits, without its record or without the state to go back to.
void add_waiting(const history::Store &store, const history::Waiting &waiting, std::vector<Damage> &all) {
    const bool can_revert = history::can_revert(store, waiting);
    bool is_missing = false;
    try {
        store.commit(waiting.commit);
    } catch (const history::Error &error) {
        if (error.why() == history::Error::Why::database) {
            throw;
        }
        is_missing = error.why() == history::Error::Why::missing;
    }
    if (!is_missing && can_revert) {
        return;
    }
    const std::string number = std::to_string(waiting.commit);
    all.push_back({kHistoryHead,
                   "commit " + number + " waits for its confirmation" +
                       (is_missing ? ", but is missing" : "") +
                       (can_revert ? ""
                                   : ", and the state before it, of commit " + std::to_string(waiting.base) +
                                         ", is missing or damaged, so nothing can go back"),
                   can_revert ? "keep what is in force with \"aaactl confirm\", or go back to commit " +
                                    std::to_string(waiting.base) + " with \"aaactl cancel\""
                              : "end the waiting, and keep what is in force: aaactl confirm",
                   !can_revert});
}

// One whose record is damaged is found with the others.
void add_last(const history::Store &store, const history::Head &head, std::vector<Damage> &all) {
    try {
        store.commit(head.last);
    } catch (const history::Error &error) {
        if (error.why() == history::Error::Why::missing) {
            all.push_back(
                {kHistoryHead, "it names commit " + std::to_string(head.last) + ", which is missing",
                 end_of_waiting(store, head) + "record what is in force as the last one: aaactl commit LABEL",
                 false});
        } else if (error.why() == history::Error::Why::database) {
            throw;
        }
    }
}

// Nothing if the head cannot be read.
std::optional<history::Head> add_head(const history::Store &store, std::vector<Damage> &all) {
    try {
        history::Head head = store.head();
        if (head.rebuilt) {
            all.push_back({kHistoryHead, "it is damaged or missing, and is made again from the commits",
                           end_of_waiting(store, head) + "store it again: aaactl commit LABEL", false});
        } else if (head.last != 0) {
            add_last(store, head, all);
        }
        if (head.waiting) {
            add_waiting(store, *head.waiting, all);
        }
        return head;
    } catch (const history::Error &error) {
        if (error.why() != history::Error::Why::damaged) {
            throw;
        }
        all.push_back(
            {kHistoryHead, "it cannot be read, so no commit can be made",
             std::string("delete it, it is made again from the commits: aaactl sysdb del --force ") +
                 kHistoryHead,
             true});
    }
    return std::nullopt;
}

void add_commit(const std::string &record, const std::string &text, std::vector<Damage> &all) {
    const std::string quoted = deletion_of_record(record);
    all.push_back({record, text + ", so the commit cannot be used",
                   "delete that commit; others stay: " + quoted.substr(1, quoted.size() - 2), false});
}

}  // namespace

std::vector<Damage> history_damage(Database &database) {
    std::vector<Damage> all;
    if (database.connection(kCfgTree) == 0) {
        return all;
    }
    with_history([&] {
        const history::Store store = store_of(database);
        const std::optional<history::Head> head = add_head(store, all);
        std::vector<std::string> damaged;
        const std::vector<history::Commit> commits = store.commits(&damaged);
        for (const std::string &path : damaged) {
            add_commit(path, "it is not a record of a commit", all);
        }
        for (const history::Commit &commit : commits) {
            try {
                store.items(commit);
            } catch (const history::Error &error) {
                if (error.why() != history::Error::Why::damaged) {
                    throw;
                }
                add_commit(kCfgTree + history::commit_directory(commit.number) + "record",
                           "its state is damaged", all);
            }
        }
        for (const uint32_t number : head ? store.out_of_sequence(*head) : std::vector<uint32_t>()) {
            const std::string record = kCfgTree + history::commit_directory(number) + "record";
            if (std::none_of(all.begin(), all.end(),
                             [&](const Damage &damage) { return damage.path == record; })) {
                add_commit(record, "the history has not given this number", all);
            }
        }
    });
    return all;
}

}  // namespace aaactl
