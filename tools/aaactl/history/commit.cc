// SPDX-License-Identifier: Apache-2.0
//
// commit, confirm and cancel.

#include <memory>

#include "cli/commands.hpp"
#include "cli/stored.hpp"
#include "history/reference.hpp"
#include "history/watchers.hpp"
#include "running_config/numbers.hpp"
#include "store/revert.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

// ---- commit

ExitCode commit(Output &out, const CommitOptions &options) {
    check_commit_options(options);
    if (options.label.empty()) {
        throw Failure(ExitCode::usage, kEmptyLabel);
    }
    Database database;
    const history::Store store = store_of(database);
    Recorded recorded;
    size_t left_out = 0;
    with_history([&] {
        change_history(store, [&](const history::Head &head, history::Changes &changes) {
            refuse_while_waiting(store, head);
            const history::State state = history::read_state(store.connection(), history::kConfiguration);
            left_out = state.unreadable.size();
            history::Writing writing(store, head);
            recorded = record(writing, head, history::Kind::commit, options, state, state);
            changes = writing.finish();
        });
    });
    Json document = Json::object();
    add_recorded(document, recorded);
    out.result(document, [&] { print_recorded(out, recorded); });
    note_left_out(out, left_out);
    follow_commit(out, database, recorded);
    return ExitCode::ok;
}

// ---- confirm

Failure nothing_waits() {
    return {ExitCode::not_found, "no commit waits for its confirmation; see \"aaactl history\""};
}

ExitCode confirm(Output &out) {
    Database database;
    const history::Store store = store_of(database);
    uint32_t number = 0;
    with_history([&] {
        change_history(store, [&](const history::Head &head, history::Changes &changes) {
            if (!head.waiting) {
                throw nothing_waits();
            }
            const history::Now now = history::system_now();
            const auto left = history::left(head.waiting->deadline, now);
            number = head.waiting->commit;
            if (left && *left <= 0 && history::can_revert(store, *head.waiting)) {
                throw Failure(
                    ExitCode::negative,
                    "commit " + std::to_string(number) + " was to be confirmed until " +
                        history::time_text(head.waiting->deadline.wall) +
                        ": it is too late, and the state before is in force again as soon as aaad, "
                        "\"aaactl watch-confirm\" or \"aaactl cancel\" runs; then \"aaactl rollback " +
                        std::to_string(number) + "\" brings its state back");
            }
            history::Writing writing(store, head);
            writing.end_waiting(history::Ending::confirmed, history::caller().name(), now.wall);
            changes = writing.finish();
        });
    });
    out.result({{"commit", number}, {"confirmed", true}},
               [&] { out.line("commit " + std::to_string(number) + " is confirmed"); });
    return ExitCode::ok;
}

// ---- cancel

ExitCode cancel(Output &out) {
    Database database;
    const history::Store store = store_of(database);
    const history::Reverted reverted = with_history([&] {
        const history::Head head = store.head();
        if (!head.waiting) {
            throw nothing_waits();
        }
        const Items before = items_of(history::read_state(store.connection(), history::kConfiguration).items);
        const auto done = history::revert(store, head.waiting->commit, history::caller(), "canceled",
                                          history::system_now());
        change_is_stored() = done.has_value();
        if (!done) {
            throw Failure(ExitCode::negative,
                          "commit " + std::to_string(head.waiting->commit) +
                              " was confirmed or reverted meanwhile; see \"aaactl history\"");
        }
        const Items after = items_of(store.items(store.commit(done->base)));
        settle_numbers(out, database, before, after);
        return *done;
    });
    Json document = {{"canceled", reverted.waited}, {"target", reverted.base}};
    if (reverted.commit != 0) {
        document["commit"] = reverted.commit;
    }
    if (reverted.outside != 0) {
        document["outside"] = reverted.outside;
    }
    out.result(document, [&] {
        if (reverted.outside != 0) {
            out.line("commit " + std::to_string(reverted.outside) +
                     ": what was changed without a commit meanwhile");
        }
        out.line((reverted.commit == 0 ? "" : "commit " + std::to_string(reverted.commit) + ": ") +
                 "the state of commit " + std::to_string(reverted.base) + " is in force again; commit " +
                 std::to_string(reverted.waited) + " is canceled" + history::not_recorded(reverted));
    });
    return ExitCode::ok;
}

}  // namespace

void add_commit(Command root) {
    auto options = std::make_shared<CommitOptions>();
    Command sub = root.command("commit", "Record the running configuration in the history",
                               [options](Output &out) { return commit(out, *options); });
    sub.option("LABEL", options->label, "A name for the commit, by which it can be found again").required();
    add_commit_options(sub, *options, false);
    sub.footer(
        "Everything below /cfg/gl/aaa/ is recorded, with the time, the user and where the user is logged in. "
        "Changes\n"
        "have their effect at once, with or without a commit. With --confirm the configuration goes back to "
        "the\n"
        "commit before when nobody confirms it: not being able to log in any more is then over after some "
        "minutes.\n"
        "While a commit waits for its confirmation, no other commit can be made: exit status 1.\n"
        "JSON: {commit, confirm_until}\n"
        "Examples: aaactl commit before-upgrade\n"
        "          aaactl commit new-servers -m 'Servers of the second site' --confirm 10");
}

void add_confirm(Command root) {
    Command sub = root.command("confirm", "Keep the commit that waits for its confirmation", confirm);
    sub.footer(
        "Exit status 1 when it comes too late, 4 when no commit waits. It is never too late when the state "
        "before is\n"
        "missing or damaged, because nothing can go back to it.\nJSON: {commit, confirmed}\n"
        "Example: aaactl confirm");
}

void add_cancel(Command root) {
    Command sub = root.command(
        "cancel", "Go back to the commit before the one that waits for its confirmation", cancel);
    sub.footer(
        "What would happen at the end of its time happens now. What was changed without a commit meanwhile "
        "becomes\n"
        "one, so that nothing is lost. Exit status 4 when no commit waits.\n"
        "JSON: {canceled, commit unless the database had no room for it, target: the commit that is in force "
        "again, outside}\n"
        "Example: aaactl cancel");
}

}  // namespace aaactl
