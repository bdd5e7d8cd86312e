// SPDX-License-Identifier: Apache-2.0
//
// rollback.

#include <algorithm>
#include <memory>

#include "cli/commands.hpp"
#include "cli/suggestion.hpp"
#include "config/references.hpp"
#include "database/schema.hpp"
#include "history/reference.hpp"
#include "history/text_diff.hpp"
#include "history/watchers.hpp"

namespace aaactl {
namespace {

struct RollbackOptions {
    std::string to;
    bool dry_run = false;
    bool force = false;
    CommitOptions commit;
};

struct Outcome {
    Recorded recorded;
    bool is_present = false;  // nothing would be changed, and nothing is recorded
    Items before;
    history::Items wanted;
};

// What the service would not use of the commit, as "load" says it. What is stored already may stay as it is.
class Check {
  public:
    Check(Database &database, const Items &before, const Items &wanted,
          const std::set<std::string> &unreadable)
        : before_(before), wanted_(wanted), paths_before_(paths_of(before)), paths_(paths_of(wanted)) {
        paths_.is_published = paths_before_.is_published = config_paths(database).is_published;
        for (const std::string &path : unreadable) {  // they stay
            paths_before_.paths.insert(kCfgTree + path);
            paths_.paths.insert(kCfgTree + path);
        }
    }

    // Failure, with one note for each item but the last.
    void run(Output &out) const {
        std::vector<std::string> faults;
        bool all_references = true;
        for (const auto &[path, item] : wanted_) {
            const auto found = before_.find(path);
            const bool is_stored = found != before_.end() && found->second == item;
            const std::string form = is_stored ? "" : schema_fault(path, item);
            const std::string fault = form.empty() ? broken_reference(path, item, is_stored) : form;
            if (!fault.empty()) {
                faults.push_back(escaped(path) + ": " + fault);
                all_references = all_references && form.empty();
            }
        }
        if (faults.empty()) {
            return;
        }
        const size_t shown = std::min(faults.size(), kMostFaults);
        for (size_t i = 0; i + 1 < shown; ++i) {
            out.note("aaactl: " + faults[i]);
        }
        std::string last = faults[shown - 1];
        if (shown < faults.size()) {
            last = followed_by(last, counted(faults.size() - shown, "more problem") + " of the same commit");
        }
        throw Failure(all_references ? ExitCode::negative : ExitCode::bad_input,
                      followed_by(last, "nothing was changed (--force goes back all the same)"));
    }

  private:
    static constexpr size_t kMostFaults = 100;  // that are printed

    static ConfigPaths paths_of(const Items &items) {
        ConfigPaths paths;
        for (const auto &[path, item] : items) {
            paths.paths.insert(path);
        }
        return paths;
    }
    // Of an item that stays, only a reference that is sound now.
    std::string broken_reference(const std::string &path, const Item &item, bool is_stored) const {
        const std::string fault = reference_fault(path, item, paths_);
        return fault.empty() || (is_stored && !reference_fault(path, item, paths_before_).empty()) ? ""
                                                                                                   : fault;
    }

    const Items &before_;
    const Items &wanted_;
    ConfigPaths paths_before_;
    ConfigPaths paths_;
};

Outcome roll_back(Output &out, Database &database, const history::Store &store,
                  const RollbackOptions &options, const history::Commit &target) {
    Outcome outcome;
    outcome.wanted = with_history([&] { return store.items(target); });
    const Items wanted = items_of(outcome.wanted);
    with_history([&] {
        change_history(store, [&](const history::Head &head, history::Changes &changes) {
            refuse_while_waiting(store, head);
            outcome.recorded = {};
            const history::State now = history::read_state(store.connection(), history::kConfiguration);
            outcome.before = items_of(now.items);
            const history::Changes items = history::changes_between(now, outcome.wanted);
            outcome.is_present = items.empty();
            if (!options.force) {
                Check(database, outcome.before, wanted, now.unreadable).run(out);
            }
            if (options.dry_run || outcome.is_present) {
                return;
            }
            history::Writing writing(store, head);
            outcome.recorded = record(writing, head, history::Kind::rollback, options.commit, now,
                                      {outcome.wanted, now.unreadable}, target.number);
            changes = writing.finish();
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
    const Outcome outcome = roll_back(out, database, store, options, target);
    const Items after = items_of(outcome.wanted);
    const std::vector<LineChange> changes = line_changes(out, outcome.before, after);
    const bool is_done = !options.dry_run && !outcome.is_present;
    Json document = {
        {"target", target.number}, {"rolled_back", is_done}, {"lines", line_changes_json(changes)}};
    if (is_done) {
        settle_numbers(out, database, outcome.before, after);
        add_recorded(document, outcome.recorded);
    }
    out.result(document, [&] {
        if (outcome.is_present) {
            out.line("nothing to change: the configuration is that of " + commit_text(target) +
                     " already; no commit was made");
            return;
        }
        print_line_changes(out, changes);
        if (options.dry_run) {
            out.line("would go back to " + commit_text(target));
            return;
        }
        print_recorded(out, outcome.recorded);
    });
    note_left_out(out, target.left_out);
    follow_commit(out, database, outcome.recorded);
    return ExitCode::ok;
}

}  // namespace

void add_rollback(Command root) {
    auto options = std::make_shared<RollbackOptions>();
    Command sub = root.command("rollback", "Make the configuration that of a commit again",
                               [options](Output &out) { return rollback(out, *options); });
    sub.option("REV", options->to, kReferenceHelp).required();
    sub.flag("--dry-run", options->dry_run, "Print what would be changed");
    sub.flag("--force", options->force,
             "Accept lists that name groups that do not exist, and items that nothing reads");
    add_commit_options(sub, options->commit);
    sub.footer(
        "All of it or nothing, as one change, which is a commit itself. What was changed without a commit "
        "before becomes\n"
        "one, so a rollback can be undone: \"aaactl rollback\" with the number that it prints. The numbers "
        "of "
        "other\n"
        "commits do not change. Keys are those of the commit. What the service would not read or use is "
        "refused as by\n"
        "\"load\", unless --force or it is stored already; \"cancel\" and going back in time refuse "
        "nothing. When the\n"
        "configuration is that of the commit already, nothing is done, and no commit is made.\n"
        "JSON: {target, rolled_back: false with --dry-run or when nothing was to change, commit, outside, "
        "confirm_until, lines as in \"aaactl diff\"}\n"
        "Examples: aaactl rollback --dry-run last\n"
        "          aaactl rollback before-upgrade --confirm 10");
}

}  // namespace aaactl
