// SPDX-License-Identifier: Apache-2.0

#include "commits/damage.hpp"

#include "commits/recording.hpp"

namespace aaactl {
namespace {

void add_head(const history::Store &store, std::vector<Damage> &all) {
    try {
        if (store.head().rebuilt) {
            all.push_back({kHistoryHead, "it is damaged or missing, and is made again from the commits",
                           "store it again: aaactl commit LABEL", false});
        }
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
        add_head(store, all);
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
    });
    return all;
}

}  // namespace aaactl
