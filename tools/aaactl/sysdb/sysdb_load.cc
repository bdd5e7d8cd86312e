// SPDX-License-Identifier: Apache-2.0
//
// sysdb load: loads a dump into the database as one change: all of it or nothing,
// even if this process is killed.

#include <algorithm>
#include <cstdint>
#include <memory>

#include "cli/suggestion.hpp"
#include "commits/recording.hpp"
#include "config/groups.hpp"
#include "config/references.hpp"
#include "database/dump.hpp"
#include "database/schema.hpp"
#include "database/sysdb_apply.hpp"
#include "platform/cerr.h"
#include "sysdb/sysdb.hpp"

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

// The stored value replaces a masked one, and must not change before the dump is loaded. Check has found it.
void add_masked(const DumpItem &item, const std::map<std::string_view, const DumpItem *> &stored,
                Changes &changes) {
    changes.expect(item.path, stored.at(item.path)->item);
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
            add_masked(item, by_path, plan.changes);
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
        const Failure failure = database_failure(dump.directory, rc);
        return {failure.code(), with_nothing_done(failure, where + failure.what(), "nothing was loaded")};
    }
    const DumpItem &item = dump.items[index];
    const Failure failure = database_failure(item.path, rc);
    return {
        failure.code() == ExitCode::usage ? ExitCode::bad_input : failure.code(),
        with_nothing_done(failure, where + dump.place(item) + ": " + failure.what(), "nothing was loaded")};
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

// ---- what is wrong with the dump

// With an item that is not in the dump, but would refer to something that the load deletes, `line` is that
// after the last.
struct Problem {
    size_t line;
    std::string place;
    std::string path;
    std::string text;
    enum class Kind { unreadable, masked, form, reference } kind;
};
constexpr size_t kMostProblems = 100;  // that are printed

constexpr size_t kLongestPath = 511;

// The database refuses these, but only when they are stored: --dry-run would not tell.
std::string path_fault(const std::string &path) {
    const bool is_empty_part = path.find("//") != std::string::npos;
    const bool has_control = std::any_of(
        path.begin(), path.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
    const cerrno rc = is_empty_part || has_control ? SYSDB_ERR_BAD_PATH
                      : path.size() > kLongestPath ? SYSDB_ERR_PATH_TOO_LONG
                                                   : 0;
    return rc == 0 ? "" : database_failure(path, rc).what();
}

// The result of the load. Items that cannot be read count, so that no item is said to refer to nothing.
ConfigPaths paths_after(const ConfigPaths &before, const LoadOptions &options, const Dump &dump,
                        const std::vector<DumpFault> &faults) {
    ConfigPaths after = before;
    if (options.replace) {
        std::erase_if(after.paths, [&](const std::string &path) { return path.starts_with(dump.directory); });
    }
    for (const DumpItem &item : dump.items) {
        after.paths.insert(item.path);
    }
    for (const DumpFault &fault : faults) {
        after.paths.insert(fault.path);
    }
    return after;
}

class Check {
  public:
    Check(Database &database, const LoadOptions &options, const Dump &dump, const Dump &stored,
          const std::vector<DumpFault> &faults)
        : options_(options),
          dump_(dump),
          before_(config_paths(database)),
          after_(paths_after(before_, options, dump, faults)) {
        for (const DumpItem &item : stored.items) {
            stored_[item.path] = &item;
        }
        for (const DumpFault &fault : faults) {
            problems_.push_back({fault.line, fault.place, fault.path, fault.text, Problem::Kind::unreadable});
        }
    }

    std::vector<Problem> run(Database &database) {
        for (const DumpItem &item : dump_.items) {
            check(item);
        }
        if (!options_.force && options_.replace) {
            others(database);
        }
        std::stable_sort(problems_.begin(), problems_.end(),
                         [](const Problem &a, const Problem &b) { return a.line < b.line; });
        return std::move(problems_);
    }

  private:
    // False if there is no fault.
    bool add(const DumpItem &item, Problem::Kind kind, const std::string &fault) {
        if (!fault.empty()) {
            problems_.push_back({item.line, dump_.place(item), item.path, fault, kind});
        }
        return !fault.empty();
    }
    void check(const DumpItem &item) {
        if (add(item, Problem::Kind::unreadable, path_fault(item.path))) {
            return;
        }
        const auto found = stored_.find(item.path);
        const DumpItem *stored =
            found != stored_.end() && found->second->fault.empty() ? found->second : nullptr;
        if (item.masked) {
            const bool can_be_kept = stored != nullptr && stored->item.type == item.item.type;
            add(item, Problem::Kind::masked, can_be_kept ? "" : kNotKept);
        } else if (!options_.force) {
            const bool is_stored = stored != nullptr && stored->item == item.item;
            const std::string hidden = is_stored || restores_history() ? "" : hidden_fault(item.path);
            const std::string form = is_stored        ? ""
                                     : hidden.empty() ? schema_fault(item.path, item.item)
                                                      : hidden;
            add(item, Problem::Kind::form, form) ||
                add(item, Problem::Kind::reference, broken_reference(item.path, item.item, is_stored));
        }
    }
    // A whole history in place of the stored one, from a backup.
    bool restores_history() const {
        return options_.replace && (dump_.directory == "/cfg/" || dump_.directory == "/cfg/.history/");
    }
    // Of an item that is stored already, only a reference that is sound now.
    std::string broken_reference(const std::string &path, const Item &item, bool is_stored) const {
        const std::string fault = reference_fault(path, item, after_);
        return fault.empty() || (is_stored && !reference_fault(path, item, before_).empty()) ? "" : fault;
    }
    // Items outside of the dump's directory, which stay.
    void others(Database &database) {
        database.walk(
            kConfigRoot,
            [&](const std::string &path, const Item &item) {
                const std::string fault =
                    path.starts_with(dump_.directory) ? "" : broken_reference(path, item, true);
                if (!fault.empty()) {
                    problems_.push_back({SIZE_MAX, "in the database", path, fault, Problem::Kind::reference});
                }
            },
            [](const Unreadable &) {});
    }

    static constexpr char kNotKept[] =
        "the value is masked, and no value of its type is stored that could be kept; dump with "
        "--show-secrets";

    const LoadOptions &options_;
    const Dump &dump_;
    std::map<std::string_view, const DumpItem *> stored_;
    ConfigPaths before_;
    ConfigPaths after_;
    std::vector<Problem> problems_;
};

std::string problem_text(const LoadOptions &options, const Problem &problem) {
    return source_name(options) + problem.place + ": " +
           (problem.kind != Problem::Kind::unreadable ? escaped(problem.path) + ": " : "") + problem.text;
}

// All of them, in the order of the dump.
void refuse(Output &out, const LoadOptions &options, const std::vector<Problem> &problems) {
    if (problems.empty()) {
        return;
    }
    Json faults = Json::array();
    for (const Problem &problem : problems) {
        faults.push_back({{"path", escaped(problem.path)}, {"fault", problem.text}});
    }
    const size_t shown = std::min(problems.size(), kMostProblems);
    for (size_t i = 0; i + 1 < shown; ++i) {
        out.note("aaactl: " + problem_text(options, problems[i]));
    }
    std::string last = problem_text(options, problems[shown - 1]);
    if (shown < problems.size()) {
        last = followed_by(last, counted(problems.size() - shown, "more problem") + " of the same dump");
    }
    const auto all_are = [&](std::initializer_list<Problem::Kind> kinds) {
        return std::all_of(problems.begin(), problems.end(), [&](const Problem &problem) {
            return std::find(kinds.begin(), kinds.end(), problem.kind) != kinds.end();
        });
    };
    const bool can_be_forced = all_are({Problem::Kind::form, Problem::Kind::reference});
    throw Failure(all_are({Problem::Kind::reference}) ? ExitCode::negative : ExitCode::bad_input,
                  followed_by(last, std::string("nothing was loaded") +
                                        (can_be_forced ? " (--force loads it all the same)" : "")))
        .with({{"faults", faults}});
}

// ---- the load

constexpr int kAttempts = 100;  // each time another process has made its change

struct Outcome {
    Dump stored;
    std::vector<Difference> differences;
};

Outcome load_dump(Output &out, Database &database, const LoadOptions &options, const Dump &dump,
                  const std::vector<DumpFault> &faults) {
    for (int attempt = 1;; ++attempt) {
        Outcome outcome{read_database(out, database, dump.directory, true, dump.items.size()), {}};
        outcome.differences = planned(dump, outcome.stored, options.replace);
        refuse(out, options, Check(database, options, dump, outcome.stored, faults).run(database));
        const Plan plan = changes_of(database, dump, outcome.stored, options.replace);
        if (options.dry_run) {
            return outcome;
        }
        out.progress("Storing " + counted(dump.items.size(), "item") + " as one change");
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
    std::vector<DumpFault> faults;
    const Dump dump = read_dump(out, options.file, &faults);
    if (faults.empty()) {
        check_is_whole(options, dump);
    }
    Database database;
    if (holds_hidden(dump)) {
        database.show_hidden();
        if ((options.replace || options.force) && !options.dry_run) {
            with_history([&] {
                const history::Store store = store_of(database);
                refuse_while_waiting(store, store.head());
            });
        }
    }
    const Outcome outcome = load_dump(out, database, options, dump, faults);
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
                 ", deleted " + std::to_string(counts.deleted) + "; the dump has " +
                 counted(dump.items.size(), "item"));
    });
    if (!options.dry_run && !outcome.differences.empty()) {
        note_goes_back_too(out, database);
    }
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
        "Below /cfg/gl/aaa/ only what sysdb(5) describes is loaded, unless --force or it is stored already. "
        "The "
        "history\n"
        "below /cfg/.history/ is loaded as a whole, with --replace, when no commit waits for its "
        "confirmation.\n"
        "All of the dump is checked before anything is changed; everything wrong is reported, in its order.\n"
        "With --replace the dump has to end with \"# end: N items\"; one in JSON is whole if it can be "
        "read.\n"
        "JSON: {directory, items, created, changed, deleted, loaded, differences with --dry-run:\n"
        "[{path, change: added|removed|changed, before, after}]}, each of these two\n{type, value, masked or "
        "fault}\n"
        "Example: aaactl sysdb load --replace --dry-run backup");
}

}  // namespace aaactl
