// SPDX-License-Identifier: Apache-2.0
//
// load: configuration text into the database, as one change.

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>

#include "aaa/server_groups.h"
#include "cli/commands.hpp"
#include "cli/end_signals.hpp"
#include "cli/suggestion.hpp"
#include "config/groups.hpp"
#include "database/sysdb_apply.hpp"
#include "keys/sealed_keys.hpp"
#include "platform/cerr.h"
#include "running_config/stored.hpp"

namespace aaactl {
namespace {

struct LoadOptions {
    std::string file;
    bool replace = false;
    bool dry_run = false;
    bool force = false;
};

// What is stored before, and what shall be.
struct Plan {
    Dump stored;
    std::set<std::string> unreadable;
    Items before;
    Applied after;
    Dump wanted;
    std::vector<Difference> differences;
    std::vector<Owner> created;
    std::vector<Owner> deleted;
};

Dump as_dump(const Items &items) {
    Dump dump;
    dump.directory = kConfigRoot;
    for (const auto &[path, item] : items) {
        dump.items.push_back({path, item, false, 0, {}});
    }
    return dump;
}

std::vector<Owner> only_in_first(const Items &first, const Items &second) {
    const std::vector<Owner> others = group_owners(second);
    std::vector<Owner> owners = group_owners(first);
    std::erase_if(owners, [&](const Owner &owner) {
        return std::find(others.begin(), others.end(), owner) != others.end();
    });
    return owners;
}

Item seal(const Item &clear) {
    check_clear_key(text_of(clear));
    return text_item(seal_key(text_of(clear).c_str()));
}

ApplyOptions apply_options(Database &database, const LoadOptions &options, const Plan &plan) {
    ApplyOptions how;
    how.seal = seal;
    how.force = options.force;
    how.kept = &plan.before;
    how.is_published = [&database](const std::string &name) {
        const auto group = resolve_group(database, name);
        return group && !group->configured;
    };
    return how;
}

Plan make_plan(Output &out, Database &database, const LoadOptions &options, const Statements &statements) {
    Plan plan;
    plan.stored = read_database(out, database, kConfigRoot, true);
    out.end_progress();
    for (const DumpItem &item : plan.stored.items) {
        if (item.fault.empty()) {
            plan.before[item.path] = item.item;
        } else {
            plan.unreadable.insert(item.path);
        }
    }
    plan.after =
        apply(statements, options.replace ? Items{} : plan.before, apply_options(database, options, plan));
    plan.wanted = as_dump(plan.after.items);
    plan.differences = compare(plan.wanted, plan.stored, kConfigRoot);
    if (!options.replace) {  // items that cannot be read are not in the plan, and stay
        std::erase_if(plan.differences, [&](const Difference &difference) {
            return difference.dump == nullptr && !difference.stored->fault.empty();
        });
    }
    plan.created = only_in_first(plan.after.items, plan.before);
    plan.deleted = only_in_first(plan.before, plan.after.items);
    return plan;
}

// ---- the changes

Changes replacing_changes(const Plan &plan) {
    Changes changes;
    for (const DumpItem &item : plan.wanted.items) {
        changes.set(item.path, item.item);
    }
    changes.prune(kConfigRoot);
    return changes;
}

// The directory of a new server's ordinal, "/cfg/gl/aaa/.../server/0x1/"; "" for other items.
std::string ordinal_of(const std::string &path) {
    for (const std::string_view list : {"/server/0x", "/server-private/0x", "/host/0x"}) {
        const size_t at = path.find(list);
        const size_t end = at == std::string::npos ? at : path.find('/', at + list.size());
        if (end != std::string::npos) {
            return path.substr(0, end + 1);
        }
    }
    return "";
}

// Only what differs, and only if it is still what the plan was made from.
Changes merging_changes(const Plan &plan) {
    Changes changes;
    std::vector<std::string> pruned;
    for (const std::string &tree : plan.after.removed_trees) {
        if (plan.before.contains(tree) || any_below(plan.before, tree)) {
            pruned.push_back(tree);
        }
    }
    const auto is_pruned = [&](const std::string &path) {
        return std::any_of(pruned.begin(), pruned.end(),
                           [&](const std::string &tree) { return path.starts_with(tree); });
    };
    std::set<std::string> ordinals;
    const auto expect = [&](const std::string &path, const DumpItem *stored) {
        const std::string ordinal = stored == nullptr ? ordinal_of(path) : "";
        if (!ordinal.empty() && !any_below(plan.before, ordinal) && ordinals.insert(ordinal).second) {
            changes.expect_nothing_in(ordinal);  // another process may take it meanwhile
        }
        if (is_pruned(path) || path.ends_with('/') || plan.unreadable.contains(path)) {
            return;
        }
        stored != nullptr ? changes.expect(path, stored->item) : changes.expect_absent(path);
    };
    for (const Difference &difference : plan.differences) {
        const std::string &path = (difference.dump != nullptr ? difference.dump : difference.stored)->path;
        expect(path, difference.stored);
        if (difference.dump == nullptr && !is_pruned(path)) {
            path.ends_with('/') ? changes.prune(path) : changes.erase(path);
        }
    }
    for (const DumpItem &item : plan.wanted.items) {  // what a deleted directory has again is kept
        if (is_pruned(item.path)) {
            changes.set(item.path, item.item);
        }
    }
    for (const Difference &difference : plan.differences) {
        if (difference.dump != nullptr && !is_pruned(difference.dump->path)) {
            changes.set(difference.dump->path, difference.dump->item);
        }
    }
    for (const std::string &tree : pruned) {
        changes.prune(tree);
    }
    return changes;
}

// ---- the numbers of groups

// A group of another protocol gives its name up in the same load.
bool takes_a_name(const Plan &plan, const Owner &owner) {
    return std::any_of(plan.deleted.begin(), plan.deleted.end(),
                       [&](const Owner &deleted) { return deleted.group == owner.group; });
}

std::string place_of(const Statements &statements, const Owner &owner) {
    for (const Statement &statement : statements) {
        const auto *group = std::get_if<GroupStatement>(&statement.what);
        if (group != nullptr && !statement.removed && group->owner == owner) {
            return "line " + std::to_string(statement.line) + ": ";
        }
    }
    return "";
}

// Says how far a long load has come.
void show_progress(Output &out, const char *what, size_t done, size_t all) {
    out.progress(std::string(what) + ", " + percent_text(done, all));
}

void verify_groups(Output &out, const Plan &plan, const Statements &statements) {
    for (size_t i = 0; i < plan.created.size(); ++i) {
        const Owner &owner = plan.created[i];
        if (takes_a_name(plan, owner)) {
            continue;
        }
        show_progress(out, "Checking the groups", i, plan.created.size());
        try {
            verify_group(owner.of(), *owner.group, AAA_CFG_OP_CREATE);
        } catch (const Failure &failure) {
            throw Failure(failure.code(), place_of(statements, owner) + failure.what());
        }
    }
    out.end_progress();
}

// The numbers of all groups that a load creates or deletes; each function is one change.
class Numbers {
  public:
    Numbers(Database &database, const Plan &plan) : database_(database), plan_(plan) {}

    // Before the groups are configured, as "sg add": a group without a number does not work.
    void publish() {
        const std::vector<group_numbers::Group> groups = created(false);
        const std::vector<group_numbers::Number> numbers = publish_numbers(database_, groups);
        for (size_t i = 0; i < groups.size(); ++i) {
            if (numbers[i].is_new) {
                published_.push_back(groups[i]);
            }
        }
        for (size_t i = 0; i < groups.size(); ++i) {
            if (numbers[i].rc != 0) {
                throw number_failure(groups[i].name, numbers[i].rc);
            }
        }
    }
    // What publish() has published.
    void undo(Output &out) {
        if (const cerrno rc = withdraw_numbers(database_, published_); rc != 0) {
            out.note("aaactl: numbers of groups that are not configured stay published: " +
                     escaped(cerr_strerror(rc)) +
                     "; the next load uses them, and \"aaactl lint\" lists them");
        }
        published_.clear();
    }
    // When the configuration is stored. Also of groups that were numbered before: the service withdraws
    // numbers of groups that are not configured yet.
    void settle(Output &out) {
        std::vector<group_numbers::Group> deleted;
        for (const Owner &owner : plan_.deleted) {
            deleted.push_back({owner.of().word, *owner.group});
        }
        const std::vector<group_numbers::Group> groups = created(true);
        try {
            const cerrno rc = withdraw_numbers(database_, deleted);
            const auto numbers = publish_numbers(database_, groups);
            for (size_t i = 0; i < numbers.size(); ++i) {
                if (numbers[i].rc != 0) {
                    throw number_failure(groups[i].name, numbers[i].rc);
                }
            }
            if (rc != 0) {
                throw database_failure(kGroupMaps, rc);
            }
        } catch (const Failure &failure) {
            out.note(std::string("aaactl: everything is stored, but ") + failure.what() +
                     "; to number the groups, say: aaactl sg publish");
        }
    }

  private:
    std::vector<group_numbers::Group> created(bool with_those_that_take_names) const {
        std::vector<group_numbers::Group> groups;
        for (const Owner &owner : plan_.created) {
            if (with_those_that_take_names || !takes_a_name(plan_, owner)) {
                groups.push_back({owner.of().word, *owner.group});
            }
        }
        return groups;
    }

    Database &database_;
    const Plan &plan_;
    std::vector<group_numbers::Group> published_;
};

// ---- the command

constexpr int kAttempts = 10;  // when others change the same items meanwhile

// The database refuses paths and values of items, which only the statement "item" can have.
Failure refused(const Statements &statements, const std::string &path, cerrno rc) {
    const Failure failure = database_failure(path, rc);
    for (const Statement &statement : statements) {
        const auto *item = std::get_if<ItemStatement>(&statement.what);
        if (item != nullptr && item->path == path) {
            return {failure.code() == ExitCode::usage ? ExitCode::bad_input : failure.code(),
                    "line " + std::to_string(statement.line) + ": " + failure.what()};
        }
    }
    return failure;
}

std::string command_of(const LoadOptions &options) {
    return std::string("aaactl load") + (options.replace ? " --replace" : "") +
           (options.force ? " --force" : "") + " " + shell_word(options.file);
}

// Three changes, each of which is made or not: the numbers of new groups, the items, the numbers again. A
// signal is obeyed before the second, and the first is undone.
cerrno store(Output &out, Database &database, const LoadOptions &options, const Statements &statements,
             const Plan &plan) {
    const Changes changes = options.replace ? replacing_changes(plan) : merging_changes(plan);
    if (changes.empty()) {
        return 0;
    }
    Numbers numbers(database, plan);
    const HeldSignals held;
    try {
        out.progress("Numbering " + std::to_string(plan.created.size()) + " groups as one change");
        numbers.publish();
        if (held.take()) {
            throw Failure(ExitCode::failed,
                          "interrupted before the items were stored (to load them, say again: " +
                              command_of(options) + ")");
        }
        out.progress("Storing " + std::to_string(changes.size()) + " changes as one");
        size_t failed = 0;
        const cerrno rc = changes.apply(database, kConfigRoot, failed);
        if (rc == SYSDB_ERR_CONFLICT) {
            numbers.undo(out);
            return rc;
        }
        if (rc != 0) {
            throw refused(statements, changes.path(failed).value_or(kConfigRoot), rc);
        }
    } catch (const Failure &) {
        numbers.undo(out);
        throw;
    }
    numbers.settle(out);
    held.take();  // it came when everything was done, as the result says
    return 0;
}

Plan load_statements(Output &out, const LoadOptions &options, const Statements &statements) {
    Database database;
    for (int attempt = 1;; ++attempt) {
        Plan plan = make_plan(out, database, options, statements);
        verify_groups(out, plan, statements);
        const cerrno rc = options.dry_run ? 0 : store(out, database, options, statements, plan);
        if (rc == 0) {
            return plan;
        }
        if (attempt == kAttempts) {
            throw database_failure(kConfigRoot, rc);
        }
    }
}

Json outcome_json(const Output &out, const LoadOptions &options, const Statements &statements,
                  const Plan &plan, size_t created, size_t deleted) {
    Json document = {{"statements", statements.size()},
                     {"created", created},
                     {"changed", plan.differences.size() - created - deleted},
                     {"deleted", deleted},
                     {"loaded", !options.dry_run}};
    if (options.dry_run) {
        document["differences"] = Json::array();
        for (const Difference &difference : plan.differences) {
            document["differences"].push_back(
                item_change_json(out, {difference.stored, difference.dump}, "before", "after"));
        }
    }
    return document;
}

// A text that was cut, or is empty because the command that makes it failed, would delete what it lacks.
void check_is_whole(const LoadOptions &options, const std::string &text) {
    if (options.replace && !is_whole(text)) {
        throw Failure(
            ExitCode::bad_input,
            text.find_first_not_of(" \t\r\n") == std::string::npos
                ? "the text is empty, and --replace would delete everything; to delete everything, "
                  "load the line \"end\""
                : "the last line is not \"end\", so the text may be cut, and --replace would delete "
                  "what it lacks; if it is whole, add the line \"end\"");
    }
}

ExitCode load(Output &out, const LoadOptions &options) {
    const std::string name = options.file == "-" ? "standard input" : escaped(options.file);
    try {
        const std::string text = read_whole_file(options.file);
        const Statements statements = parse_statements(text);
        check_is_whole(options, text);
        const Plan plan = load_statements(out, options, statements);
        const auto created = static_cast<size_t>(
            std::count_if(plan.differences.begin(), plan.differences.end(),
                          [](const Difference &difference) { return difference.stored == nullptr; }));
        const auto deleted = static_cast<size_t>(
            std::count_if(plan.differences.begin(), plan.differences.end(),
                          [](const Difference &difference) { return difference.dump == nullptr; }));
        out.result(outcome_json(out, options, statements, plan, created, deleted), [&] {
            for (const Difference &difference :
                 options.dry_run ? plan.differences : std::vector<Difference>{}) {
                print_item_change(out, {difference.stored, difference.dump});
            }
            out.line(std::string(options.dry_run ? "would be " : "") + "created " + std::to_string(created) +
                     ", changed " + std::to_string(plan.differences.size() - created - deleted) +
                     ", deleted " + std::to_string(deleted) + " items");
        });
    } catch (const Failure &failure) {
        throw Failure(failure.code(), followed_by(name + ": " + failure.what(), "nothing was changed"));
    }
    return ExitCode::ok;
}

}  // namespace

void add_load(Command root) {
    auto options = std::make_shared<LoadOptions>();
    Command sub = root.command("load", "Load configuration text, all of it or nothing",
                               [options](Output &out) { return load(out, *options); });
    sub.option("FILE", options->file, "The text; - for standard input").required();
    sub.flag("--replace", options->replace, "Delete everything below /cfg/gl/aaa/ that is not in the text");
    sub.flag("--dry-run", options->dry_run, "Check, and print what would be changed");
    sub.flag("--force", options->force,
             "Accept changed lists that name groups that do not exist (yet), and services and methods that "
             "nothing "
             "uses");
    sub.footer(
        "Adds to what is stored: servers to a group, settings to a server. A method list is replaced, and "
        "\"no\" before a\n"
        "statement deletes. With one wrong line nothing is changed; the message names the line. Lines that "
        "begin with\n"
        "'!' or '#' are comments, indentation means nothing, and keywords may be shortened if only one "
        "begins so.\n"
        "With --replace the last line has to be \"end\", or the text may be cut; \"end\" alone deletes "
        "everything.\n"
        "Statements:\n"
        "  [no] aaa group server radius|tacacs|diameter NAME\n"
        "    [no] server|server-private ADDRESS [auth-port N] [acct-port N] [index N] [[no] SETTING]...\n"
        "    [no] server|server-private ADDRESS [port N] ...          of other protocols\n"
        "    [no] SETTING\n"
        "  [no] radius-server|tacacs-server|diameter-server host ADDRESS ...\n"
        "  [no] radius-server|tacacs-server|diameter-server SETTING\n"
        "  [no] aaa authentication|authorization|authorization_nacm SERVICE NAME METHOD...\n"
        "  [no] aaa accounting SERVICE NAME [start-stop] [broadcast] METHOD...\n"
        "  [no] item PATH TYPE VALUE\n"
        "METHOD is group NAME, local, none, line, enable, ...; a SETTING is a name of sysdb(5) and its "
        "value:\n"
        "timeout 3s, tries 2, dead-time 5min, single-connect off, key 7 SEALED, key 0 CLEAR (it is sealed), "
        "default-port 49\n"
        "(sysdb: port).\n"
        "JSON: {statements, created, changed, deleted, loaded, differences with --dry-run:\n"
        "[{path, change: added|removed|changed, before, after}]}, each of these two\n{type, value, masked or "
        "fault}\n"
        "Examples: aaactl load --dry-run corp.conf\n"
        "          aaactl load --replace corp.conf");
}

}  // namespace aaactl
