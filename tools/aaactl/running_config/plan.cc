// SPDX-License-Identifier: Apache-2.0

#include "running_config/plan.hpp"

#include <algorithm>

#include "aaa/server_groups.h"
#include "config/groups.hpp"
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
    const auto expect = [&](const std::string &path, const DumpItem *stored) {
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
    return state_of(before, unreadable);
}

history::State Plan::state_after() const {
    std::set<std::string> kept = unreadable;  // unless they have a value now
    std::erase_if(kept, [&](const std::string &path) { return after.items.contains(path); });
    return state_of(after.items, kept);
}

Plan make_plan(Output &out, Database &database, const PlanOptions &options, const Statements &statements) {
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
    plan.groups = group_changes(plan.before, plan.after.items);
    return plan;
}

void verify_groups(const Plan &plan, const Statements &statements) {
    for (const Owner &owner : plan.groups.created) {
        if (plan.groups.takes_a_name(owner)) {
            continue;
        }
        try {
            verify_group(owner.of(), *owner.group, AAA_CFG_OP_CREATE);
        } catch (const Failure &failure) {
            throw Failure(failure.code(), place_of(statements, owner) + failure.what());
        }
    }
}

cerrno store_plan(Output &out, Database &database, const PlanOptions &options, const Statements &statements,
                  const Plan &plan, const Record &record) {
    Changes changes = options.replace ? replacing_changes(plan, options.expect) : merging_changes(plan);
    record(changes);
    if (changes.empty()) {
        return 0;
    }
    Numbers numbers(database, plan.groups);
    numbers.publish();
    size_t failed = 0;
    const cerrno rc = changes.apply(database, kCfgTree, failed);
    if (rc == 0) {
        numbers.settle(out);
        return rc;
    }
    numbers.undo();
    if (rc != SYSDB_ERR_CONFLICT) {
        throw refused(statements, changes.path(failed).value_or(kConfigRoot), rc);
    }
    return rc;
}

}  // namespace aaactl
