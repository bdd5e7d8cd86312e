// SPDX-License-Identifier: Apache-2.0
//
// history: the commits, the newest first.

#include <memory>

#include "cli/commands.hpp"
#include "history/reference.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

std::string short_time(int64_t seconds) {
    const std::string text = history::time_text(seconds);
    return text.substr(0, text.rfind(':'));  // without seconds and zone
}

std::string ending_text(const history::Commit &commit) {
    return commit.ending == history::Ending::none ? "" : std::string(", ") + history::word_of(commit.ending);
}

std::vector<std::string> row_of(const Output &out, const history::Commit &commit) {
    const bool open = commit.ending == history::Ending::waiting;
    return {std::to_string(commit.number),
            short_time(commit.time),
            shown_text(commit.author.name(), kLongestAuthor),
            shown_text(commit.author.place(), kLongestAuthor),
            out.styled(open ? Style::warning : Style::plain, kind_text(commit) + ending_text(commit)),
            shown_text(commit.label),
            shown_text(commit.message, kLongestMessage)};
}

Json waiting_json(const history::Waiting &waiting, std::optional<int64_t> left) {
    Json document = {{"commit", waiting.commit},
                     {"target", waiting.base},
                     {"confirm_until", history::time_text(waiting.deadline.wall)}};
    if (left) {
        document["seconds_left"] = *left / 1000;
    }
    return document;
}

ExitCode list(Output &out, uint32_t most) {
    Database database(Database::Use::reading);
    std::vector<std::string> damaged;
    history::Head head;
    std::vector<history::Commit> commits;
    if (database.connection(kCfgTree) != 0) {
        with_history([&] {
            const history::Store store = store_of(database);
            head = store.head();
            commits = store.commits(&damaged);
        });
    }
    Json document = {{"commits", Json::array()}, {"waiting", Json()}};
    std::vector<std::vector<std::string>> rows;
    for (auto commit = commits.rbegin(); commit != commits.rend() && rows.size() < most; ++commit) {
        document["commits"].push_back(commit_json(*commit));
        rows.push_back(row_of(out, *commit));
    }
    std::optional<int64_t> left;
    if (head.waiting) {
        left = history::left(head.waiting->deadline, history::system_now());
        document["waiting"] = waiting_json(*head.waiting, left);
    }
    out.result(document, [&] {
        if (rows.empty()) {
            out.line("there is no commit yet; \"aaactl commit LABEL\" makes one");
            return;
        }
        out.table({"COMMIT", "TIME (UTC)", "BY", "FROM", "KIND", "LABEL", "MESSAGE"}, rows);
        if (head.waiting) {
            const bool over = left && *left <= 0;
            out.line(out.styled(
                Style::warning,
                "commit " + std::to_string(head.waiting->commit) +
                    (over ? " was to be confirmed until " : " waits for its confirmation until ") +
                    history::time_text(head.waiting->deadline.wall) +
                    (over ? " and is not reverted yet; \"aaactl cancel\" does it"
                          : ", then commit " + std::to_string(head.waiting->base) + " is in force again")));
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
        "commit\": what was changed by other means before the next commit. The oldest ones are deleted when "
        "there are\n"
        "more than /cfg/gl/aaa/history/commits (50), or more bytes than /cfg/gl/aaa/history/kilobytes "
        "allows.\n"
        "Exit status 3 when a record cannot be read; the others are shown.\n"
        "JSON: {commits: [{commit, time in seconds since 1970, kind: "
        "commit|outside|load|edit|rollback|revert, label,\n"
        "message, uid, user, login, from, terminal, items, bytes, left_out, target, minutes, "
        "confirmation:\n"
        "waiting|confirmed|reverted, ended_by, ended}], waiting: {commit, target, confirm_until, "
        "seconds_left} "
        "or null}\n"
        "Example: aaactl history -n 10");
}

}  // namespace aaactl
