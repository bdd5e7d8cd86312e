// SPDX-License-Identifier: Apache-2.0
//
// rollback.

#include <memory>

#include "cli/commands.hpp"
#include "history/reference.hpp"
#include "history/text_diff.hpp"
#include "history/watchers.hpp"

namespace aaactl {
namespace {

struct RollbackOptions {
    std::string to;
    bool dry_run = false;
    CommitOptions commit;
};

struct Outcome {
    Recorded recorded;
    Items before;
    history::Items wanted;
};

Outcome roll_back(const history::Store &store, const RollbackOptions &options,
                  const history::Commit &target) {
    Outcome outcome;
    outcome.wanted = with_history([&] { return store.items(target); });
    with_history([&] {
        change_history(store, [&](const history::Head &head, history::Changes &changes) {
            refuse_while_waiting(store, head);
            const history::State now = history::read_state(store.connection(), history::kConfiguration);
            outcome.before = items_of(now.items);
            if (options.dry_run) {
                return;
            }
            history::Writing writing(store, head);
            outcome.recorded = record(writing, head, history::Kind::rollback, options.commit, now,
                                      {outcome.wanted, now.unreadable}, target.number);
            changes = writing.finish();
            const history::Changes items = history::changes_between(now, outcome.wanted);
            changes.insert(changes.end(), items.begin(), items.end());
        });
    });
    return outcome;
}

ExitCode rollback(Output &out, const RollbackOptions &options) {
    check_commit_options(options.commit);
    Database database;
    const history::Store store = store_of(database);
    const history::Commit target = find_commit(store, options.to);
    const Outcome outcome = roll_back(store, options, target);
    const Items after = items_of(outcome.wanted);
    const std::vector<LineChange> changes = line_changes(out, outcome.before, after);
    Json document = {
        {"target", target.number}, {"rolled_back", !options.dry_run}, {"lines", line_changes_json(changes)}};
    if (!options.dry_run) {
        settle_numbers(out, database, outcome.before, after);
        add_recorded(document, outcome.recorded);
    }
    out.result(document, [&] {
        print_line_changes(out, changes);
        if (options.dry_run) {
            out.line("would go back to " + commit_text(target));
            return;
        }
        print_recorded(out, outcome.recorded);
    });
    note_left_out(out, target.left_out);
    note_no_watcher(out, database, outcome.recorded);
    return ExitCode::ok;
}

}  // namespace

void add_rollback(Command root) {
    auto options = std::make_shared<RollbackOptions>();
    Command sub = root.command("rollback", "Make the configuration that of a commit again",
                               [options](Output &out) { return rollback(out, *options); });
    sub.option("REV", options->to, kReferenceHelp).required();
    sub.flag("--dry-run", options->dry_run, "Print what would be changed");
    add_commit_options(sub, options->commit);
    sub.footer(
        "All of it or nothing, as one change, which is a commit itself. What was changed without a commit "
        "before becomes\n"
        "one, so a rollback can be undone: \"aaactl rollback\" with the number that it prints. The numbers "
        "of "
        "other\n"
        "commits do not change. Keys are those of the commit.\n"
        "JSON: {target, rolled_back, commit, outside, confirm_until, lines as in \"aaactl diff\"}\n"
        "Examples: aaactl rollback --dry-run last\n"
        "          aaactl rollback before-upgrade --confirm 10");
}

}  // namespace aaactl
