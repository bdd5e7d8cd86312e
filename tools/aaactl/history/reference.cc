// SPDX-License-Identifier: Apache-2.0

#include "history/reference.hpp"

#include <algorithm>
#include <charconv>

#include "cli/suggestion.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

std::optional<uint32_t> number_in(const std::string &word) {
    uint32_t number = 0;
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && stop == word.data() + word.size() ? std::optional(number) : std::nullopt;
}

// Another commit than the one that was meant is not taken in its place: going back to it would lose what the
// last one had.
std::string last_is_missing(uint32_t number, const std::vector<history::Commit> &commits) {
    return "commit " + std::to_string(number) + ", the last one, is missing in the history, " +
           (commits.empty()
                ? "and there is no other; "
                : "and the newest one that is there is " + commit_text(commits.back()) +
                      ": name it by its number, " + std::to_string(commits.back().number) + "; or ") +
           "\"aaactl commit LABEL\" records what is in force as the last one";
}

Failure missing(const history::Store &store, const std::string &word, uint32_t number) {
    const std::vector<history::Commit> commits = store.commits();
    if (word == "last" && number != 0) {
        return {ExitCode::not_found, last_is_missing(number, commits)};
    }
    if (commits.empty()) {
        return {ExitCode::not_found, "there is no commit yet; \"aaactl commit LABEL\" makes one"};
    }
    std::vector<std::string> labels;
    for (const history::Commit &commit : commits) {
        if (!commit.label.empty()) {
            labels.push_back(commit.label);
        }
    }
    return {ExitCode::not_found, "\"" + escaped(word) + "\" is no commit" + did_you_mean(word, labels) +
                                     "; the commits are " + std::to_string(commits.front().number) + " to " +
                                     std::to_string(commits.back().number) + ", see \"aaactl history\""};
}

}  // namespace

history::Commit find_commit(const history::Store &store, const std::string &word) {
    return with_history([&] {
        const std::optional<uint32_t> number =
            word == "last" ? std::optional(store.head().last) : number_in(word);
        if (number) {
            try {
                return store.commit(*number);
            } catch (const history::Error &error) {
                if (error.why() != history::Error::Why::missing) {
                    throw;
                }
                throw missing(store, word, *number);
            }
        }
        std::vector<history::Commit> commits = store.commits();
        const auto found = std::find_if(commits.rbegin(), commits.rend(),
                                        [&](const history::Commit &commit) { return commit.label == word; });
        if (word.empty() || found == commits.rend()) {
            throw missing(store, word, 0);
        }
        return *found;
    });
}

std::string Version::name() const {
    return commit ? commit_text(*commit) : "the running configuration";
}

std::string Version::word() const {
    return commit ? std::to_string(commit->number) : "running";
}

Version find_version(const history::Store &store, const std::string &word) {
    return with_history([&] {
        Version version;
        if (word == "running") {
            version.items = items_of(history::read_state(store.connection(), history::kConfiguration).items);
        } else {
            version.commit = find_commit(store, word);
            version.items = items_of(store.items(*version.commit));
        }
        return version;
    });
}

void check_database_exists(Database &database) {
    if (database.connection(kCfgTree) == 0) {
        throw Failure(ExitCode::not_found,
                      "there is no system database yet, and so no commit; \"aaactl commit LABEL\" makes both "
                      "(if there should be one, see AAA_SYSDB_CFG_DIR)");
    }
}

std::string by_text(const history::Commit &commit) {
    return (commit.kind == history::Kind::outside ? "found by " : "") +
           shown_text(commit.author.name(), kLongestAuthor);
}

std::string author_text(const history::Commit &commit) {
    const std::string place = commit.author.place();
    return (commit.kind == history::Kind::outside ? "" : "by ") + by_text(commit) +
           (place.empty() ? "" : " from " + shown_text(place, kLongestAuthor));
}

std::string kind_text(const history::Commit &commit) {
    switch (commit.kind) {
        case history::Kind::rollback:
            return "rollback to " + std::to_string(commit.target);
        case history::Kind::revert:
            return "revert to " + std::to_string(commit.target);
        case history::Kind::outside:
            return "without a commit";
        default:
            return history::word_of(commit.kind);
    }
}

std::optional<uint32_t> waiting_commit(const history::Store &store) {
    try {
        const auto waiting = store.head().waiting;
        return waiting ? waiting->commit : 0;
    } catch (const history::Error &error) {
        if (error.why() == history::Error::Why::database) {
            throw;
        }
        return std::nullopt;
    }
}

std::string confirmation_of(const history::Commit &commit, std::optional<uint32_t> waiting) {
    const bool is_over = commit.ending == history::Ending::waiting && waiting && *waiting != commit.number;
    return is_over ? kUnknown : history::word_of(commit.ending);
}

Json commit_json(const history::Commit &commit, std::optional<uint32_t> waiting) {
    Json document = {{"commit", commit.number},
                     {"time", commit.time},
                     {"kind", history::word_of(commit.kind)},
                     {"label", escaped(commit.label)},
                     {"message", escaped(commit.message)},
                     {"uid", commit.author.uid},
                     {"user", escaped(commit.author.user)},
                     {"login", escaped(commit.author.login)},
                     {"from", escaped(commit.author.from)},
                     {"terminal", escaped(commit.author.terminal)},
                     {"items", commit.items},
                     {"bytes", commit.bytes}};
    if (commit.kind == history::Kind::outside) {
        document["found_by"] = escaped(commit.author.name());
    }
    if (commit.left_out != 0) {
        document["left_out"] = commit.left_out;
    }
    if (commit.target != 0) {
        document["target"] = commit.target;
    }
    if (commit.ending != history::Ending::none) {
        document["minutes"] = commit.minutes;
        document["confirmation"] = confirmation_of(commit, waiting);
    }
    if (commit.ended != 0) {
        document["ended_by"] = escaped(commit.ended_by);
        document["ended"] = commit.ended;
    }
    return document;
}

}  // namespace aaactl
