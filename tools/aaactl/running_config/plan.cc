// SPDX-License-Identifier: Apache-2.0

#include "running_config/plan.hpp"

#include <algorithm>

#include "aaa/server_groups.h"
#include "cli/end_signals.hpp"
#include "config/groups.hpp"
#include "database/snapshot.hpp"
#include "keys/sealed_keys.hpp"
#include "running_config/stored.hpp"

namespace aaactl {
namespace {

Dump as_dump(const Items &items) {
    Dump dump;
    dump.directory = kConfigRoot;
    for (const auto &[path, item] : items) {
        dump.items.push_back({path, item, false, 0, {}});
    }
    return dump;
}

Item seal(const Item &clear) {
    check_clear_key(text_of(clear));
    return text_item(seal_key(text_of(clear).c_str()));
}

ApplyOptions apply_options(Database &database, const PlanOptions &options, const Plan &plan) {
    ApplyOptions how;
    how.seal = seal;
    how.force = options.force;
    how.checked = options.checked;
    how.kept = &plan.before;
    how.is_published = [&database](const std::string &name) {
        const auto group = resolve_group(database, name);
        return group && !group->configured;
    };
    return how;
}

// ---- the changes

Changes replacing_changes(const Plan &plan, bool expect) {
    Changes changes;
    if (expect) {
        append(history::changes_between(plan.state_before(), plan.state_after().items), changes);
        return changes;
    }
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

// ---- the groups

std::string place_of(const Statements &statements, const Owner &owner) {
    for (const Statement &statement : statements) {
        const auto *group = std::get_if<GroupStatement>(&statement.what);
        if (group != nullptr && !statement.removed && group->owner == owner) {
            return "line " + std::to_string(statement.line) + ": ";
        }
    }
    return "";
}

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

}  // namespace

history::State Plan::state_before() const {
    history::State state = state_of(before, unreadable);
    state.of_one_moment = of_one_moment;
    return state;
}

history::State Plan::state_after() const {
    std::set<std::string> kept = unreadable;  // unless they have a value now
    std::erase_if(kept, [&](const std::string &path) { return after.items.contains(path); });
    return state_of(after.items, kept);
}

Plan make_plan(Output &out, Database &database, const PlanOptions &options, const Statements &statements) {
    Plan plan;
    plan.stored = read_snapshot(out, database, kConfigRoot, true, &plan.of_one_moment);
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
    plan.groups = group_changes(plan.before, plan.after.items);
    return plan;
}

void verify_groups(Output &out, const Plan &plan, const Statements &statements) {
    for (size_t i = 0; i < plan.groups.created.size(); ++i) {
        const Owner &owner = plan.groups.created[i];
        if (plan.groups.takes_a_name(owner)) {
            continue;
        }
        out.progress("Checking the groups, " + percent_text(i, plan.groups.created.size()));
        try {
            verify_group(owner.of(), *owner.group, AAA_CFG_OP_CREATE);
        } catch (const Failure &failure) {
            throw Failure(failure.code(), place_of(statements, owner) + failure.what());
        }
    }
    out.end_progress();
}

// Three changes, each of which is made or not: the numbers of new groups, the items, the numbers again. A
// signal is obeyed before the second, and the first is undone.
cerrno store_plan(Output &out, Database &database, const PlanOptions &options, const Statements &statements,
                  const Plan &plan, const Record &record) {
    Changes changes = options.replace ? replacing_changes(plan, options.expect) : merging_changes(plan);
    record(changes);
    if (changes.empty()) {
        return 0;
    }
    Numbers numbers(database, plan.groups);
    const HeldSignals held;
    try {
        out.progress("Numbering " + std::to_string(plan.groups.created.size()) + " groups as one change");
        numbers.publish();
        if (held.take()) {
            throw Failure(
                ExitCode::failed,
                "interrupted before the items were stored" +
                    (options.again.empty() ? "" : " (to load them, say again: " + options.again + ")"));
        }
        out.progress("Storing " + std::to_string(changes.size()) + " changes as one");
        size_t failed = 0;
        const cerrno rc = changes.apply(database, kCfgTree, failed);
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

}  // namespace aaactl
