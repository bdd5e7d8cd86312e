// SPDX-License-Identifier: Apache-2.0

#include "commits/recording.hpp"

#include "cli/stored.hpp"
#include "cli/suggestion.hpp"
#include "store/presence.hpp"
#include "store/revert.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

constexpr std::string_view kTree = kCfgTree;

ExitCode exit_code(const history::Error &error) {
    switch (error.why()) {
        case history::Error::Why::damaged:
            return ExitCode::bad_input;
        case history::Error::Why::missing:
            return ExitCode::not_found;
        case history::Error::Why::refused:
            return ExitCode::negative;
        default:
            return database_failure("", error.code()).code();
    }
}

}  // namespace

Failure history_failure(const history::Error &error) {
    if (error.code() == SYSDB_ERR_TOO_MANY_CHANGES) {  // no item is at fault
        return database_failure(kCfgTree, error.code());
    }
    return {exit_code(error), escaped(error.what())};
}

history::Store store_of(Database &database) {
    return history::Store(database.connection(kCfgTree));
}

history::State state_of(const std::map<std::string, Item> &items, const std::set<std::string> &unreadable) {
    history::State state;
    for (const auto &[path, item] : items) {
        state.items.emplace_hint(state.items.end(), path.substr(kTree.size()),
                                 history::Item{item.type, item.bytes});
    }
    for (const std::string &path : unreadable) {
        state.unreadable.insert(path.substr(kTree.size()));
    }
    return state;
}

std::map<std::string, Item> items_of(const history::Items &items) {
    std::map<std::string, Item> all;
    for (const auto &[path, item] : items) {
        all.emplace_hint(all.end(), kCfgTree + path, Item{item.type, item.bytes});
    }
    return all;
}

std::string shown_text(const std::string &text, size_t most) {
    if (text.size() <= most) {
        return escaped(text);
    }
    size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0u) == 0x80) {  // inside a character
        --end;
    }
    return escaped(std::string_view(text).substr(0, end)) + "...";
}

std::string commit_text(const history::Commit &commit) {
    return "commit " + std::to_string(commit.number) +
           (commit.label.empty() ? "" : " (" + shown_text(commit.label) + ")");
}

std::string deletion_of_record(const std::string &path) {
    return "\"aaactl sysdb del --force -r " + shell_word(escaped(path.substr(0, path.rfind('/') + 1))) + "\"";
}

void change_history(const history::Store &store, const history::Make &make) {
    bool any = false;
    history::change(store, [&](const history::Head &head, history::Changes &changes) {
        make(head, changes);
        any = !changes.empty();
    });
    change_is_stored() = change_is_stored() || any;
}

namespace {

// "commit 7 (risky) of alice"
std::string waiting_text(const history::Store &store, const history::Waiting &waiting) {
    try {
        const history::Commit commit = store.commit(waiting.commit);
        return commit_text(commit) + " of " + shown_text(commit.author.name(), kLongestAuthor);
    } catch (const history::Error &) {  // its number says enough
        return "commit " + std::to_string(waiting.commit);
    }
}

}  // namespace

void refuse_while_waiting(const history::Store &store, const history::Head &head, const std::string &why) {
    if (!head.waiting) {
        return;
    }
    const std::string what = waiting_text(store, *head.waiting);
    if (!with_history([&] { return history::can_revert(store, *head.waiting); })) {
        throw Failure(ExitCode::negative, what + " waits for its confirmation and " + kOnlyConfirm +
                                              ": run it, and try again" + why);
    }
    const auto left = history::left(head.waiting->deadline, history::system_now());
    const std::string until = history::time_text(head.waiting->deadline.wall);
    throw Failure(ExitCode::negative,
                  left && *left <= 0
                      ? what + " was to be confirmed until " + until +
                            ", and is reverted now; if it is not, because neither aaad nor \"aaactl "
                            "watch-confirm\" runs, run \"aaactl cancel\"" +
                            why
                      : what + " waits for its confirmation until " + until +
                            "; run \"aaactl confirm\" to keep it, or \"aaactl cancel\" to go back, and try "
                            "again" +
                            why);
}

bool is_needed_to_go_back(const history::Store &store, const history::Head &head, const std::string &path) {
    if (!head.waiting) {
        return false;
    }
    const auto goes = [&](const std::string &item) {
        return path.ends_with('/') ? item.starts_with(path) : item == path;
    };
    const std::string record = kCfgTree + history::commit_directory(head.waiting->commit) + "record";
    bool has_record = true;
    try {
        store.commit(head.waiting->commit);
    } catch (const history::Error &) {
        has_record = false;
    }
    // The head is made again from the records, and the record is not needed while there is a head.
    const bool loses_head = goes(kHistoryHead) || head.rebuilt;
    const bool loses_record = goes(record) || !has_record;
    if (loses_head && loses_record && (goes(kHistoryHead) || goes(record))) {
        return true;
    }
    const std::string base = kCfgTree + history::commit_directory(head.waiting->base);
    return (goes(base) || path.starts_with(base)) && history::can_revert(store, *head.waiting);
}

void note_goes_back_too(Output &out, Database &database) {
    try {
        const history::Store store = store_of(database);
        const auto waiting = store.head().waiting;
        if (waiting && history::can_revert(store, *waiting)) {
            out.note("aaactl: " + waiting_text(store, *waiting) + " waits for its confirmation until " +
                     history::time_text(waiting->deadline.wall) +
                     "; without it this change is taken back too. To keep both, run \"aaactl confirm\"");
        }
    } catch (const history::Error &) {  // the change is made; "history" and "lint" name what is damaged
    }
}

Recorded record(history::Writing &writing, const history::Head &head, history::Kind kind,
                const CommitOptions &options, const history::State &before, const history::State &after,
                uint32_t target) {
    if (!before.of_one_moment) {
        throw Failure(
            ExitCode::unavailable,
            "the configuration was changed again and again while it was read, so no state of it can "
            "be recorded; try again when the other changes are made");
    }
    Recorded recorded;
    const history::Now now = history::system_now();
    history::Commit commit;
    commit.kind = kind;
    commit.time = now.wall;
    commit.author = history::caller();
    uint32_t base = head.last;
    if (!writing.is_recorded(before) && kind != history::Kind::commit) {
        history::Commit outside = commit;
        outside.kind = history::Kind::outside;
        outside.message = base == 0 ? "the configuration when the history began"
                                    : "changed without a commit since commit " + std::to_string(base);
        base = recorded.outside = writing.add(outside, before);
    }
    recorded.before = kind == history::Kind::commit ? 0 : base;
    commit.label = options.label;
    commit.message = options.message;
    commit.target = target;
    commit.minutes = options.minutes;
    commit.ending = options.minutes == 0 ? history::Ending::none : history::Ending::waiting;
    recorded.commit = writing.add(commit, after);
    if (options.minutes != 0) {
        if (base == 0) {
            throw Failure(ExitCode::negative,
                          "there is no earlier commit to go back to; make one without --confirm first");
        }
        recorded.deadline = history::deadline_after(options.minutes, now);
        writing.wait(recorded.commit, base, *recorded.deadline);
    }
    return recorded;
}

history::Head head_for_commit(Database &database) {
    return with_history([&] {
        const history::Store store = store_of(database);
        const history::Head head = store.head();
        refuse_while_waiting(store, head);
        return head;
    });
}

Recorded record_change(Database &database, const history::Head &head, history::Kind kind,
                       const CommitOptions &options, const history::State &before,
                       const history::State &after, Changes &changes, uint32_t target) {
    return with_history([&] {
        const history::Store store = store_of(database);
        history::Writing writing(store, head);
        const Recorded recorded = record(writing, head, kind, options, before, after, target);
        append(writing.finish(), changes);
        return recorded;
    });
}

void append(const history::Changes &more, Changes &changes) {
    for (const history::Change &change : more) {
        changes.add(change.operation, kCfgTree + change.path, {change.item.type, change.item.bytes});
    }
}

void add_recorded(Json &document, const Recorded &recorded) {
    document["commit"] = recorded.commit;
    if (recorded.outside != 0) {
        document["outside"] = recorded.outside;
    }
    if (recorded.deadline) {
        document["confirm_until"] = history::time_text(recorded.deadline->wall);
    }
}

void print_recorded(Output &out, const Recorded &recorded) {
    if (recorded.outside != 0) {
        out.line("commit " + std::to_string(recorded.outside) + ": changes that were made without a commit");
    }
    out.line("commit " + std::to_string(recorded.commit));
    if (recorded.deadline) {
        out.line("run \"aaactl confirm\" until " + history::time_text(recorded.deadline->wall) +
                 " to keep it; otherwise the state before is in force again");
    }
}

void hint_recorded_before(Output &out, Database &database, const history::State &before) {
    try {
        const history::Store store = store_of(database);
        const history::Head head = store.head();
        if (!head.waiting && history::Writing(store, head).is_recorded(before)) {
            out.hint("to go back: aaactl rollback " + std::to_string(head.last));
        }
    } catch (const history::Error &) {  // the change is made
    }
}

void follow_commit(Output &out, Database &database, const Recorded &recorded) {
    if (recorded.commit == 0) {
        return;
    }
    if (!recorded.deadline) {
        out.hint(recorded.before != 0
                     ? "to go back: aaactl rollback " + std::to_string(recorded.before)
                     : "to come back to this state: aaactl rollback " + std::to_string(recorded.commit));
        return;
    }
    try {
        history::make_freed_usable(store_of(database));
    } catch (const history::Error &) {  // the next change does the same
    }
    if (!history::is_watched(database.connection(history::kPresenceTree))) {
        out.note(
            "aaactl: neither aaad nor \"aaactl watch-confirm\" runs, so nothing would go back; start one of "
            "them");
    }
}

}  // namespace aaactl
