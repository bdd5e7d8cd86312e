// SPDX-License-Identifier: Apache-2.0

#include "report/history.hpp"

#include <algorithm>

#include "history/reference.hpp"
#include "store/revert.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

constexpr int64_t kMillisecondsPerMinute = 60'000;

void read_store(const history::Store &store, ReportedHistory &read) {
    const history::Head head = store.head();
    read.head_is_damaged = head.rebuilt;
    read.waiting = head.waiting;
    if (head.waiting) {
        read.left = history::left(head.waiting->deadline, history::system_now());
        read.can_revert = history::can_revert(store, *head.waiting);
    }
    std::vector<history::Commit> commits = store.commits(&read.damaged);
    read.commits = commits.size();
    std::reverse(commits.begin(), commits.end());
    commits.resize(std::min(commits.size(), ReportedHistory::kMostCommits));
    read.newest = std::move(commits);
}

// The page does not change while it is read, so the minutes are those of its own time.
std::string left_text(int64_t left) {
    const int64_t minutes = left / kMillisecondsPerMinute;
    const std::string time = minutes == 0   ? "less than a minute"
                             : minutes == 1 ? "1 minute"
                                            : std::to_string(minutes) + " minutes";
    return time + " left when this page was written";
}

void write_waiting(Html &page, const ReportedHistory &history) {
    const history::Waiting &waiting = *history.waiting;
    const std::string commit = "Commit " + std::to_string(waiting.commit);
    const std::string until = history::time_text(waiting.deadline.wall);
    if (!history.can_revert) {
        page.line("p",
                  commit +
                      " waits for its confirmation and cannot be reverted, because the state before it is "
                      "missing or damaged; aaactl confirm ends the waiting.",
                  {{"class", "bad"}});
        return;
    }
    if (history.left && *history.left <= 0) {
        page.line("p",
                  commit + " was to be confirmed until " + until +
                      " and is not reverted yet; aaactl cancel does it.",
                  {{"class", "bad"}});
        return;
    }
    page.line("p",
              commit + " waits for its confirmation until " + until +
                  (history.left ? ", " + left_text(*history.left) : "") + ". Then commit " +
                  std::to_string(waiting.base) +
                  " is in force again. aaactl confirm keeps it, aaactl cancel goes back at once.",
              {{"class", "warn"}});
}

void write_damage(Html &page, const ReportedHistory &history) {
    if (history.head_is_damaged) {
        page.line("p", std::string(kHistoryHead) + " is damaged or missing; the next commit makes it again.",
                  {{"class", "bad"}});
    }
    for (const std::string &path : history.damaged) {
        page.line(
            "p",
            path + " is not a record of a commit; " + deletion_of_record(path) + " deletes that commit only.",
            {{"class", "bad"}});
    }
}

std::string title_of(const history::Commit &commit) {
    return "Commit " + std::to_string(commit.number) + (commit.label.empty() ? "" : ": " + commit.label);
}

std::string ending_of(const history::Commit &commit, uint32_t waiting) {
    if (confirmation_of(commit, waiting) == kUnknown) {
        return std::string("; ") + kUnknownText;
    }
    switch (commit.ending) {
        case history::Ending::none:
            return "";
        case history::Ending::waiting:
            return "; waits for its confirmation";
        case history::Ending::confirmed:
        case history::Ending::reverted:
            break;
    }
    return std::string("; ") + history::word_of(commit.ending) + " by " + commit.ended_by + " at " +
           history::time_text(commit.ended);
}

void write_commit(Html &page, const history::Commit &commit, uint32_t waiting) {
    page.open("li").line("strong", title_of(commit));
    page.line("p",
              history::time_text(commit.time) + (commit.kind == history::Kind::outside ? ", " : " ") +
                  author_text(commit) + "; " + kind_text(commit) + ending_of(commit, waiting),
              {{"class", "dim"}});
    for (size_t at = 0; at < commit.message.size();) {
        const size_t end = std::min(commit.message.find('\n', at), commit.message.size());
        page.line("p", commit.message.substr(at, end - at));
        at = end + 1;
    }
    page.close();
}

}  // namespace

ReportedHistory read_history(Database &database) {
    ReportedHistory read;
    if (database.connection(kCfgTree) == 0) {
        return read;
    }
    try {  // a history that cannot be read does not cost the report
        with_history([&] { read_store(store_of(database), read); });
    } catch (const Failure &failure) {
        read.defect = failure.what();
    }
    return read;
}

void write_history(Html &page, const ReportedHistory &history) {
    if (!history.defect.empty()) {
        page.line("p", history.defect, {{"class", "bad"}});
        return;
    }
    if (history.waiting) {
        write_waiting(page, history);
    }
    write_damage(page, history);
    if (history.newest.empty()) {
        page.line("p", "There is no commit yet; aaactl commit LABEL makes one.", {{"class", "dim"}});
        return;
    }
    page.open("ul", {{"class", "plain"}});
    for (const history::Commit &commit : history.newest) {
        write_commit(page, commit, history.waiting ? history.waiting->commit : 0);
    }
    page.close();
    if (const size_t older = history.commits - history.newest.size(); older != 0) {
        page.line("p",
                  "And " + std::to_string(older) + (older == 1 ? " older commit" : " older commits") +
                      "; aaactl history lists all.",
                  {{"class", "dim"}});
    }
}

}  // namespace aaactl
