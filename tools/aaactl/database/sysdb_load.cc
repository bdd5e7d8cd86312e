// SPDX-License-Identifier: Apache-2.0
//
// sysdb load: loads a dump into the database as one change: all of it or nothing,
// even if this process is killed.

#include <memory>

#include "cli/suggestion.hpp"
#include "database/dump.hpp"
#include "database/schema.hpp"
#include "database/sysdb.hpp"
#include "database/sysdb_apply.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

struct LoadOptions {
    std::string file;
    bool replace = false;
    bool dry_run = false;
    bool force = false;
};

struct Counts {
    size_t created = 0;
    size_t changed = 0;
    size_t deleted = 0;
};

// The changes that the load makes. Items that the dump does not have are deleted only with --replace.
std::vector<Difference> planned(const Dump &dump, const Dump &stored, bool replace) {
    std::vector<Difference> differences = compare(dump, stored, dump.directory);
    if (!replace) {
        std::erase_if(differences, [](const Difference &difference) { return difference.dump == nullptr; });
    }
    return differences;
}

Counts count(const std::vector<Difference> &differences) {
    Counts counts;
    for (const Difference &difference : differences) {
        ++(difference.stored == nullptr ? counts.created
           : difference.dump == nullptr ? counts.deleted
                                        : counts.changed);
    }
    return counts;
}

// The stored value replaces a masked one, and must not change before the dump is loaded.
void add_masked(const Dump &dump, const DumpItem &item,
                const std::map<std::string_view, const DumpItem *> &stored, Changes &changes) {
    const auto found = stored.find(item.path);
    if (found == stored.end() || found->second->item.type != item.item.type ||
        !found->second->fault.empty()) {
        throw Failure(ExitCode::bad_input, dump.place(item) + ": " + escaped(item.path) +
                                               ": the value is masked, and no value of its type is stored "
                                               "that could be kept; dump with --show-secrets");
    }
    changes.expect(item.path, found->second->item);
}

// The state that the counts of the load are about: when another process changes it meanwhile, the load is
// planned again.
void expect_stored(const DumpItem &item, const std::map<std::string_view, const DumpItem *> &stored,
                   Changes &changes) {
    const auto found = stored.find(item.path);
    if (item.item.type == SYSDB_TYPE_DIRECTORY) {
        return;  // it may exist without being empty
    }
    if (found == stored.end()) {
        changes.expect_absent(item.path);
    } else if (found->second->fault.empty()) {
        changes.expect(item.path, found->second->item);
    }
}

struct Plan {
    Changes changes;
    std::vector<size_t> items;  // of the dump, one for each change
};

// What is hidden in the tree stays, unless the dump has it too.
void prune(Database &database, const Dump &dump, const Dump &stored, Changes &changes) {
    if (dump.directory != "/cfg/" || holds_hidden(dump)) {
        changes.prune(dump.directory);
        return;
    }
    for (const Entry &entry : database.entries(dump.directory)) {
        if (entry.is_directory()) {
            changes.prune(dump.directory + entry.name);
        }
    }
    for (const Difference &difference : compare(dump, stored, dump.directory)) {
        if (difference.dump == nullptr &&
            difference.stored->path.find('/', dump.directory.size()) == std::string::npos) {
            changes.erase(difference.stored->path);
        }
    }
}

Plan changes_of(Database &database, const Dump &dump, const Dump &stored, bool replace) {
    std::map<std::string_view, const DumpItem *> by_path;
    for (const DumpItem &item : stored.items) {
        by_path[item.path] = &item;
    }
    Plan plan;
    for (size_t i = 0; i < dump.items.size(); ++i) {
        const DumpItem &item = dump.items[i];
        if (item.masked) {
            add_masked(dump, item, by_path, plan.changes);
        } else {
            expect_stored(item, by_path, plan.changes);
            plan.changes.set(item.path, item.item);
        }
        plan.items.resize(plan.changes.size(), i);
    }
    if (replace) {
        prune(database, dump, stored, plan.changes);
    }
    return plan;
}

std::string source_name(const LoadOptions &options) {
    return (options.file == "-" ? "standard input" : escaped(options.file)) + ": ";
}

// Names the item of the dump that the database refused.
Failure refused(const LoadOptions &options, const Dump &dump, size_t index, cerrno rc) {
    const std::string where = source_name(options);
    if (index >= dump.items.size()) {
        return database_failure(where + "nothing was loaded", rc);
    }
    const DumpItem &item = dump.items[index];
    const Failure failure = database_failure(item.path, rc);
    return {failure.code() == ExitCode::usage ? ExitCode::bad_input : failure.code(),
            where + dump.place(item) + ": " + failure.what() + "; nothing was loaded"};
}

// A dump that was cut would delete what it lacks.
void check_is_whole(const LoadOptions &options, const Dump &dump) {
    if (options.replace && !options.force && !dump.incomplete.empty()) {
        throw Failure(ExitCode::bad_input,
                      source_name(options) + "the dump may be cut: " + dump.incomplete +
                          "; make it again with \"aaactl sysdb dump\", load it without --replace, or use "
                          "--force if what it lacks shall be deleted; nothing was loaded");
    }
}

// Items that are stored already are not what this load brings.
void check_schema(Output &out, const LoadOptions &options, const Dump &dump,
                  const std::vector<Difference> &differences) {
    Json faults = Json::array();
    std::vector<std::string> texts;
    for (const Difference &difference : differences) {
        const DumpItem *item = difference.dump;
        const std::string fault =
            options.force || item == nullptr || item->masked ? "" : schema_fault(item->path, item->item);
        if (!fault.empty()) {
            texts.push_back(source_name(options) + dump.place(*item) + ": " + escaped(item->path) + ": " +
                            fault);
            faults.push_back({{"path", escaped(item->path)}, {"fault", fault}});
        }
    }
    if (texts.empty()) {
        return;
    }
    for (size_t i = 0; i + 1 < texts.size(); ++i) {
        out.note("aaactl: " + texts[i]);
    }
    throw Failure(ExitCode::bad_input,
                  followed_by(texts.back(), "nothing was loaded (--force loads it all the same)"))
        .with({{"faults", faults}});
}

constexpr int kAttempts = 100;  // each time another process has made its change

struct Outcome {
    Dump stored;
    std::vector<Difference> differences;
};

Outcome load_dump(Output &out, Database &database, const LoadOptions &options, const Dump &dump) {
    for (int attempt = 1;; ++attempt) {
        Outcome outcome{read_database(out, database, dump.directory, true, dump.items.size()), {}};
        outcome.differences = planned(dump, outcome.stored, options.replace);
        check_schema(out, options, dump, outcome.differences);
        const Plan plan = changes_of(database, dump, outcome.stored, options.replace);
        if (options.dry_run) {
            return outcome;
        }
        out.progress("Storing " + std::to_string(dump.items.size()) + " items as one change");
        size_t failed = 0;
        const cerrno rc = plan.changes.apply(database, dump.directory, failed);
        if (rc == 0) {
            return outcome;
        }
        if (rc != SYSDB_ERR_CONFLICT || attempt == kAttempts) {
            throw refused(options, dump, failed < plan.items.size() ? plan.items[failed] : dump.items.size(),
                          rc);
        }
    }
}

ExitCode load(Output &out, const LoadOptions &options) {
    const Dump dump = read_dump(out, options.file);
    check_is_whole(options, dump);
    Database database;
    if (holds_hidden(dump)) {
        database.show_hidden();
    }
    const Outcome outcome = load_dump(out, database, options, dump);
    const Counts counts = count(outcome.differences);
    Json document = {{"directory", escaped(dump.directory)},
                     {"items", dump.items.size()},
                     {"created", counts.created},
                     {"changed", counts.changed},
                     {"deleted", counts.deleted},
                     {"loaded", !options.dry_run}};
    if (options.dry_run) {
        document["differences"] = Json::array();
        for (const Difference &difference : outcome.differences) {
            document["differences"].push_back(
                item_change_json(out, {difference.stored, difference.dump}, "before", "after"));
        }
    }
    out.result(document, [&] {
        for (const Difference &difference :
             options.dry_run ? outcome.differences : std::vector<Difference>{}) {
            print_item_change(out, {difference.stored, difference.dump});
        }
        out.line(std::string(options.dry_run ? "would be " : "") + "created " +
                 std::to_string(counts.created) + ", changed " + std::to_string(counts.changed) +
                 ", deleted " + std::to_string(counts.deleted) + " of " + std::to_string(dump.items.size()) +
                 " items");
    });
    return ExitCode::ok;
}

}  // namespace

void add_sysdb_load(Command sysdb) {
    auto options = std::make_shared<LoadOptions>();
    Command sub = sysdb.command("load", "Load a dump into the database, all of it or nothing",
                                [options](Output &out) { return load(out, *options); });
    sub.option("FILE", options->file, "The dump, text or JSON; - for standard input").required();
    sub.flag("--replace", options->replace, "Delete items of the dump's directory that are not in the dump");
    sub.flag("--dry-run", options->dry_run, "Check, and print what would be changed");
    sub.flag("--force", options->force,
             "Load what the AAA service does not read at its path, and with --replace a dump without its "
             "last line, too");
    sub.footer(
        "Below /cfg/gl/aaa/ only what sysdb(5) describes is loaded, unless --force or it is stored already; "
        "all "
        "of\nthe dump is checked before anything is changed.\n"
        "With --replace the dump has to end with \"# end: N items\"; one in JSON is whole if it can be "
        "read.\n"
        "JSON: {directory, items, created, changed, deleted, loaded, differences with --dry-run:\n"
        "[{path, change: added|removed|changed, before, after}]}, each of these two\n{type, value, masked or "
        "fault}\n"
        "Example: aaactl sysdb load --replace --dry-run backup");
}

}  // namespace aaactl
