// SPDX-License-Identifier: Apache-2.0
//
// load: configuration text into the database, as one change.

#include <algorithm>
#include <memory>
#include <optional>

#include "cli/commands.hpp"
#include "cli/suggestion.hpp"
#include "commits/commit_options.hpp"
#include "config/method_lists.hpp"
#include "platform/cerr.h"
#include "running_config/plan.hpp"

namespace aaactl {
namespace {

struct LoadOptions {
    std::string file;
    PlanOptions plan;
    bool dry_run = false;
    CommitOptions commit;
};

constexpr int kAttempts = 100;  // each time another process has made its change

struct Loaded {
    Plan plan;
    std::optional<Recorded> recorded;
};

std::string command_of(const LoadOptions &options) {
    return std::string("aaactl load") + (options.plan.replace ? " --replace" : "") +
           (options.plan.force ? " --force" : "") + command_words(options.commit) + " " +
           shell_word(options.file);
}

Loaded load_statements(Output &out, const LoadOptions &options, const Statements &statements,
                       Database &database) {
    PlanOptions how = options.plan;
    how.again = command_of(options);
    how.checked = !options.plan.force;
    for (int attempt = 1;; ++attempt) {
        const bool commits = options.commit.given() && !options.dry_run;
        const history::Head head = commits ? head_for_commit(database) : history::Head{};
        Loaded loaded{make_plan(out, database, how, statements), std::nullopt};
        verify_groups(out, loaded.plan, statements);
        const auto record = [&](Changes &changes) {
            if (commits) {
                loaded.recorded =
                    record_change(database, head, history::Kind::load, options.commit,
                                  loaded.plan.state_before(), loaded.plan.state_after(), changes);
            }
        };
        const cerrno rc =
            options.dry_run ? 0 : store_plan(out, database, how, statements, loaded.plan, record);
        if (rc == 0) {
            return loaded;
        }
        if (attempt == kAttempts) {
            throw database_failure(kConfigRoot, rc);
        }
    }
}

Json outcome_json(const Output &out, const LoadOptions &options, const Statements &statements,
                  const Loaded &loaded, size_t created, size_t deleted) {
    const std::vector<Difference> &differences = loaded.plan.differences;
    Json document = {{"statements", statements.size()},
                     {"created", created},
                     {"changed", differences.size() - created - deleted},
                     {"deleted", deleted},
                     {"loaded", !options.dry_run}};
    if (loaded.recorded) {
        add_recorded(document, *loaded.recorded);
    }
    if (options.dry_run) {
        document["differences"] = Json::array();
        for (const Difference &difference : differences) {
            document["differences"].push_back(
                item_change_json(out, {difference.stored, difference.dump}, "before", "after"));
        }
    }
    return document;
}

// A text that was cut, or is empty because the command that makes it failed, would delete what it lacks.
void check_is_whole(const LoadOptions &options, const std::string &text) {
    if (options.plan.replace && !is_whole(text)) {
        throw Failure(
            ExitCode::bad_input,
            text.find_first_not_of(" \t\r\n") == std::string::npos
                ? "the text is empty, and --replace would delete everything; to delete everything, "
                  "load the line \"end\""
                : "the last line is not \"end\", so the text may be cut, and --replace would delete "
                  "what it lacks; if it is whole, add the line \"end\"");
    }
}

// Of lists that the text changes: "mlist set" and "edit" say the same.
void note_open_logins(Output &out, const Plan &plan) {
    const std::string logins = list_path("authentication", "login", "");
    Database database(Database::Use::reading);
    database.pretend(kConfigRoot, plan.after.items);
    for (const Difference &difference : plan.differences) {
        if (difference.dump == nullptr || !difference.dump->path.starts_with(logins)) {
            continue;
        }
        const auto list =
            find_list(database, "authentication", "login", difference.dump->path.substr(logins.size()));
        if (const std::string open = list ? open_login_text(*list) : ""; !open.empty()) {
            out.note("aaactl: " + escaped(difference.dump->path) + ": " + open + "; \"local\" asks for one");
        }
    }
}

ExitCode load(Output &out, const LoadOptions &options) {
    check_commit_options(options.commit);
    if (options.dry_run && options.commit.given()) {
        throw Failure(ExitCode::usage, "--dry-run makes no commit; omit it, or --label, -m and --confirm");
    }
    const std::string name = options.file == "-" ? "standard input" : escaped(options.file);
    try {
        const std::string text = read_whole_file(options.file);
        const Statements statements = parse_statements(text);
        check_is_whole(options, text);
        Database database;
        const Loaded loaded = load_statements(out, options, statements, database);
        const Plan &plan = loaded.plan;
        const auto created = static_cast<size_t>(
            std::count_if(plan.differences.begin(), plan.differences.end(),
                          [](const Difference &difference) { return difference.stored == nullptr; }));
        const auto deleted = static_cast<size_t>(
            std::count_if(plan.differences.begin(), plan.differences.end(),
                          [](const Difference &difference) { return difference.dump == nullptr; }));
        out.result(outcome_json(out, options, statements, loaded, created, deleted), [&] {
            for (const Difference &difference :
                 options.dry_run ? plan.differences : std::vector<Difference>{}) {
                print_item_change(out, {difference.stored, difference.dump});
            }
            out.line(std::string(options.dry_run ? "would be " : "") + "created " + std::to_string(created) +
                     ", changed " + std::to_string(plan.differences.size() - created - deleted) +
                     ", deleted " + std::to_string(deleted) + " items");
            if (loaded.recorded) {
                print_recorded(out, *loaded.recorded);
            }
        });
        note_open_logins(out, plan);
        if (loaded.recorded) {
            follow_commit(out, database, *loaded.recorded);
        } else if (!options.dry_run && !plan.differences.empty()) {
            note_goes_back_too(out, database);
            hint_recorded_before(out, database, plan.state_before());
        }
    } catch (const Failure &failure) {
        throw Failure(failure.code(),
                      with_nothing_done(failure, name + ": " + failure.what(), "nothing was changed"));
    }
    return ExitCode::ok;
}

}  // namespace

void add_load(Command root) {
    auto options = std::make_shared<LoadOptions>();
    Command sub = root.command("load", "Load configuration text, all of it or nothing",
                               [options](Output &out) { return load(out, *options); });
    sub.option("FILE", options->file, "The text; - for standard input").required();
    sub.flag("--replace", options->plan.replace,
             "Delete everything below /cfg/gl/aaa/ that is not in the text");
    sub.flag("--dry-run", options->dry_run, "Check, and print what would be changed");
    sub.flag(
        "--force", options->plan.force,
        "Accept changed lists that name groups that do not exist (yet), services and methods that nothing "
        "uses, and items that nothing reads");
    add_commit_options(sub, options->commit);
    sub.footer(
        "Adds to what is stored: servers to a group, settings to a server. A method list is replaced, and "
        "\"no\" before a\n"
        "statement deletes. With one wrong line nothing is changed; the message names all wrong lines. "
        "Lines that begin with\n"
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
        "An item has to be what sysdb(5) describes, unless --force or it is stored already.\n"
        "METHOD is group NAME, local, none, line, enable, ...; a SETTING is a name of sysdb(5) and its "
        "value:\n"
        "timeout 3s, tries 2, dead-time 5min, single-connect off, key 7 SEALED, key 0 CLEAR (it is sealed), "
        "default-port 49\n"
        "(sysdb: port).\n"
        "With --label, -m or --confirm the change becomes a commit of the history; see \"aaactl commit\".\n"
        "JSON: {statements, created, changed, deleted, loaded, of a commit: commit, outside, confirm_until;\n"
        "differences with --dry-run:\n"
        "[{path, change: added|removed|changed, before, after}]}, each of these two\n{type, value, masked or "
        "fault}\n"
        "Examples: aaactl load --dry-run corp.conf\n"
        "          aaactl load --replace corp.conf\n"
        "          aaactl load --confirm 10 corp.conf");
}

}  // namespace aaactl
