// SPDX-License-Identifier: Apache-2.0
//
// history: the commits, the newest first.

#include <memory>

#include "cli/commands.hpp"
#include "history/reference.hpp"
#include "store/revert.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

std::string short_time(int64_t seconds) {
    const std::string text = history::time_text(seconds);
    return text.substr(0, text.rfind(':'));  // without seconds and zone
}

std::string ending_text(const std::string &confirmation) {
    return confirmation.empty() ? "" : ", " + (confirmation == kUnknown ? "end unknown" : confirmation);
}

std::vector<std::string> row_of(const Output &out, const history::Commit &commit, uint32_t waiting) {
    const bool open = commit.number == waiting;
    return {std::to_string(commit.number),
            short_time(commit.time),
            by_text(commit),
            shown_text(commit.author.place(), kLongestAuthor),
            out.styled(open ? Style::warning : Style::plain,
                       kind_text(commit) + ending_text(confirmation_of(commit, waiting))),
            shown_text(commit.label),
            shown_text(commit.message, kLongestMessage)};
}

// What the head says of the commit that waits.
struct Wait {
    history::Waiting waiting;
    std::optional<int64_t> left;
    bool can_revert = true;

    Json json() const {
        Json document = {{"commit", waiting.commit},
                         {"target", waiting.base},
                         {"confirm_until", history::time_text(waiting.deadline.wall)},
                         {"can_revert", can_revert}};
        if (left) {
            document["seconds_left"] = *left / 1000;
        }
        return document;
    }
    std::string text() const {
        const std::string until = history::time_text(waiting.deadline.wall);
        const std::string base = std::to_string(waiting.base);
        const bool over = left && *left <= 0;
        return "commit " + std::to_string(waiting.commit) +
               (over ? " was to be confirmed until " : " waits for its confirmation until ") + until +
               (!can_revert ? std::string(" and ") + kOnlyConfirm
                : over      ? " and is not reverted yet; \"aaactl cancel\" does it"
                            : ", then commit " + base + " is in force again");
    }
};

std::optional<Wait> wait_of(const history::Store &store, const history::Head &head) {
    if (!head.waiting) {
        return std::nullopt;
    }
    return Wait{*head.waiting, history::left(head.waiting->deadline, history::system_now()),
                history::can_revert(store, *head.waiting)};
}

ExitCode list(Output &out, uint32_t most) {
    Database database(Database::Use::reading);
    std::vector<std::string> damaged;
    history::Head head;
    std::vector<history::Commit> commits;
    std::optional<Wait> wait;
    check_database_exists(database);
    with_history([&] {
        const history::Store store = store_of(database);
        head = store.head();
        commits = store.commits(&damaged);
        wait = wait_of(store, head);
    });
    const uint32_t waiting = wait ? wait->waiting.commit : 0;
    Json document = {{"commits", Json::array()}, {"waiting", Json()}};
    std::vector<std::vector<std::string>> rows;
    for (auto commit = commits.rbegin(); commit != commits.rend() && rows.size() < most; ++commit) {
        document["commits"].push_back(commit_json(*commit, waiting));
        rows.push_back(row_of(out, *commit, waiting));
    }
    if (wait) {
        document["waiting"] = wait->json();
    }
    out.result(document, [&] {
        if (rows.empty()) {
            out.line("there is no commit yet; \"aaactl commit LABEL\" makes one");
            return;
        }
        out.table({"COMMIT", "TIME (UTC)", "BY", "FROM", "KIND", "LABEL", "MESSAGE"}, rows);
        if (wait) {
            out.line(out.styled(Style::warning, wait->text()));
        }
    });
    if (head.rebuilt) {
        out.note(std::string("aaactl: ") + kHistoryHead +
                 ": it is damaged or missing, and is made again from the commits by the next one");
    }
    for (const std::string &path : damaged) {
        out.note("aaactl: " + escaped(path) + ": it is not a record of a commit; " +
                 deletion_of_record(path) + " deletes that commit only");
    }
    return damaged.empty() ? ExitCode::ok : ExitCode::bad_input;
}

}  // namespace

void add_history(Command root) {
    auto most = std::make_shared<uint32_t>(UINT32_MAX);
    Command sub = root.command("history", "List the commits of the configuration, the newest first",
                               [most](Output &out) { return list(out, *most); });
    sub.option("-n,--count", *most, "At most so many").type("COUNT").between(1, 10000);
    sub.footer(
        "A commit is made by commit, edit and rollback, and by load with --label, -m or --confirm. \"without "
        "a\n"
        "commit\": what was changed by other means before the next commit; who made that one has found it. "
        "The oldest ones are deleted when "
        "there are\n"
        "more than /cfg/gl/aaa/history/commits (50), or more bytes than /cfg/gl/aaa/history/kilobytes "
        "allows.\n"
        "Exit status 3 when a record cannot be read; the others are shown. Exit status 4 without a "
        "database.\n"
        "JSON: {commits: [{commit, time in seconds since 1970, kind: "
        "commit|outside|load|edit|rollback|revert, label,\n"
        "message, uid, user, login, from, terminal, items, bytes, found_by: of kind outside, as then are uid "
        "to "
        "terminal,\nleft_out, target, minutes, confirmation: waiting|confirmed|reverted|unknown, ended_by, "
        "ended}],\n"
        "waiting: {commit, target, confirm_until, can_revert, seconds_left} or null}\n"
        "Example: aaactl history -n 10");
}

}  // namespace aaactl
