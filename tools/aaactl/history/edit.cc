// SPDX-License-Identifier: Apache-2.0
//
// edit: the configuration as text in an editor, checked, shown and committed.

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "cli/commands.hpp"
#include "cli/secret_input.hpp"
#include "cli/suggestion.hpp"
#include "config/checks.hpp"
#include "database/snapshot.hpp"
#include "history/editor.hpp"
#include "history/kept_texts.hpp"
#include "history/reference.hpp"
#include "history/text_diff.hpp"
#include "history/watchers.hpp"
#include "running_config/plan.hpp"
#include "running_config/shown.hpp"

namespace aaactl {
namespace {

struct EditOptions {
    std::string file;  // "": the running configuration
    CommitOptions commit;
    bool yes = false;
    bool force = false;
    bool discard_kept = false;
};

constexpr int kAttempts = 100;  // each time another process has made a commit

constexpr char kIntroduction[] =
    "! The running configuration. Save the text and leave the editor to check and commit it; an unchanged or "
    "empty\n! text changes nothing. The last line is \"end\".\n";
// The line after it has what is wrong with the text, so that the numbers of lines stay.
constexpr std::string_view kMark = "!! ";

struct Opened {
    std::map<std::string, Item> items;
    std::string text;
};

// What is wrong with the text; it can be edited again.
struct Wrong {
    ExitCode code;
    std::string message;
};

bool is_blank(const std::string &text) {
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

Opened open_configuration(Output &out, Database &database) {
    const Dump stored = read_snapshot(out, database, kConfigRoot, true);
    out.end_progress();
    Opened opened;
    std::string comments;
    for (const DumpItem &item : stored.items) {
        if (item.fault.empty()) {
            opened.items[item.path] = item.item;
        } else {
            comments += "! " + escaped(item.path) + ": " + item.fault + "; it stays\n";
        }
    }
    opened.text = kIntroduction + std::string(kMark) + "\n" + shown_configuration(out, opened.items).text +
                  comments + std::string(kEnd) + "\n";
    return opened;
}

// Puts the message into the line for it, if the user has not deleted that.
std::string marked(const std::string &text, const std::string &message) {
    const size_t begin = text.starts_with(kMark) ? 0 : text.find("\n" + std::string(kMark)) + 1;
    if (begin == 0 && !text.starts_with(kMark)) {
        return text;
    }
    const size_t end = std::min(text.find('\n', begin), text.size());
    std::string line(kMark);
    line += message;
    std::replace(line.begin(), line.end(), '\n', ' ');
    return text.substr(0, begin) + line + text.substr(end);
}

// Of a state that is not stored.
Findings findings_of(const Items &items) {
    Database database(Database::Use::reading);
    database.pretend(kConfigRoot, items);
    return check_all(database);
}

// What the change would bring: other findings have been there before.
Findings new_findings(const Plan &plan) {
    const Findings before = findings_of(plan.before);
    Findings after = findings_of(plan.after.items);
    std::erase_if(after, [&](const Finding &finding) {
        return finding.code == "stale-number" ||  // the numbers of deleted groups go with them
               std::any_of(before.begin(), before.end(), [&](const Finding &known) {
                   return known.code == finding.code && known.path == finding.path &&
                          known.text == finding.text;
               });
    });
    return after;
}

class Editing {
  public:
    Editing(Output &out, const EditOptions &options)
        : out_(out),
          options_(options),
          opened_(open_configuration(out, database_)),
          file_(options.file.empty() ? opened_.text : read_whole_file(options.file)),
          last_words_("aaactl: interrupted; " + kept_text() + "\n") {
        plan_options_.replace = true;
        plan_options_.expect = true;
        plan_options_.force = options.force;
        plan_options_.checked = !options.force;
    }

    // What was typed must not be lost: only a text that is stored, or that nobody changed, is removed.
    ExitCode run() {
        try {
            const ExitCode code = edit_until_done();
            file_.discard();
            return code;
        } catch (const Failure &failure) {
            if (!is_worth_keeping()) {
                file_.discard();
                throw;
            }
            throw Failure(failure.code(), followed_by(failure.what(), kept_text()));
        } catch (...) {
            out_.note("aaactl: " + kept_text());
            throw;
        }
    }

  private:
    enum class Answer { yes, no, edit };

    ExitCode edit_until_done() {
        for (;;) {
            edit();
            if (!file_.is_there()) {
                throw Failure(ExitCode::failed, "the editor deleted the file of the text, " +
                                                    escaped(file_.path()) + "; nothing was changed");
            }
            const std::string text = file_.text();
            if (text == opened_.text || is_blank(text)) {
                return unchanged();
            }
            try {
                const Statements statements = parse(text);
                const Plan plan = make_plan(out_, database_, plan_options_, statements);
                if (const auto path = changed_meanwhile(plan)) {
                    throw meanwhile(*path);
                }
                verify_groups(out_, plan, statements);
                const auto changes = line_changes(out_, plan.before, plan.after.items);
                if (changes.empty()) {
                    return unchanged();
                }
                switch (show_and_ask(plan, changes)) {
                    case Answer::edit:
                        continue;
                    case Answer::no:
                        throw Failure(ExitCode::negative, "nothing was changed");
                    case Answer::yes:
                        return commit(statements, changes);
                }
            } catch (const Wrong &wrong) {
                ask_again(wrong, text);
            }
        }
    }

    std::string kept_text() const {
        if (!file_.is_there()) {
            return "other files that it left are kept in " + escaped(file_.directory());
        }
        std::string command = "aaactl edit";
        command += command_words(options_.commit) + " " + shell_word(escaped(file_.path()));
        return "the text is kept in " + escaped(file_.path()) + ", and \"" + command + "\" goes on with it";
    }

    bool is_worth_keeping() const {
        if (!file_.is_there()) {
            return file_.has_company();
        }
        try {
            return file_.text() != opened_.text || file_.has_company();
        } catch (const Failure &) {  // it cannot be read
            return true;
        }
    }

    void edit() {
        try {
            file_.edit();
        } catch (const Failure &failure) {
            throw Failure(failure.code(), std::string(failure.what()) + "; nothing was changed");
        }
    }

    ExitCode unchanged() {
        out_.result({{"changed", false}}, [&] { out_.line("nothing was changed"); });
        return ExitCode::ok;
    }

    Statements parse(const std::string &text) const {
        try {
            Statements statements = parse_statements(text);
            if (!is_whole(text)) {
                throw Failure(ExitCode::bad_input,
                              "the last line is not \"end\", so the text may be cut; add it if it is whole");
            }
            return statements;
        } catch (const Failure &failure) {
            throw Wrong{failure.code(), failure.what()};
        }
    }

    Plan make_plan(Output &out, Database &database, const PlanOptions &options,
                   const Statements &statements) const {
        try {
            return aaactl::make_plan(out, database, options, statements);
        } catch (const Failure &failure) {
            if (failure.code() == ExitCode::unavailable) {
                throw;
            }
            throw Wrong{failure.code(), failure.what()};
        }
    }

    std::optional<std::string> changed_meanwhile(const Plan &plan) const {
        const auto differs =
            std::mismatch(plan.before.begin(), plan.before.end(), opened_.items.begin(), opened_.items.end());
        if (differs.first == plan.before.end() && differs.second == opened_.items.end()) {
            return std::nullopt;
        }
        const bool is_new =
            differs.second == opened_.items.end() ||
            (differs.first != plan.before.end() && differs.first->first < differs.second->first);
        return is_new ? differs.first->first : differs.second->first;
    }

    Failure meanwhile(const std::string &path) {
        return Failure(ExitCode::negative,
                       "the configuration was changed meanwhile by another process, at " + escaped(path) +
                           ", and nothing of this text was stored; see what it would undo with \"aaactl load "
                           "--replace --dry-run " +
                           shell_word(escaped(file_.path())) + "\"");
    }

    Answer ask(const std::string &question, bool may_edit) {
        for (;;) {
            const auto answer = read_answer(question, true);
            if (!answer || *answer == "n" || *answer == "no") {
                return Answer::no;
            }
            if (*answer == "y" || *answer == "yes") {
                return Answer::yes;
            }
            if (may_edit && (*answer == "e" || *answer == "edit")) {
                return Answer::edit;
            }
        }
    }

    Answer show_and_ask(const Plan &plan, const std::vector<LineChange> &changes) {
        const Findings findings = new_findings(plan);
        if (!out_.json()) {
            print_line_changes(out_, changes);
            print_findings(out_, findings);
        }
        if (options_.yes) {
            const size_t errors = count(findings, Severity::error);
            if (errors != 0 && !options_.force) {
                throw Failure(ExitCode::negative,
                              "the change has errors: " + findings.front().path + ": " +
                                  findings.front().text +
                                  "; nothing was changed (--force commits it all the same)");
            }
            return Answer::yes;
        }
        return ask("Commit these changes? (y)es, (n)o, (e)dit again: ", true);
    }

    void ask_again(const Wrong &wrong, const std::string &text) {
        if (options_.yes) {
            throw Failure(wrong.code, followed_by(wrong.message, "nothing was changed"));
        }
        out_.note("aaactl: " + wrong.message);
        if (ask("Edit again? (y)es, (n)o: ", false) == Answer::no) {
            throw Failure(wrong.code, followed_by(wrong.message, "nothing was changed"));
        }
        try {
            file_.write(marked(text, wrong.message));
        } catch (const Failure &failure) {  // the text is as the editor left it
            out_.note(std::string("aaactl: ") + failure.what());
        }
    }

    struct Stored {
        Recorded recorded;
        std::optional<std::string> meanwhile;  // nothing is stored: another process has changed this path
    };
    // The head of the history belongs to the state that the change is made from, so both are read again after
    // the question, and after a conflict.
    Stored store(const Statements &statements) {
        for (int attempt = 1; attempt <= kAttempts; ++attempt) {
            const history::Head head = head_for_commit(database_);
            const Plan plan = make_plan(out_, database_, plan_options_, statements);
            if (auto path = changed_meanwhile(plan)) {
                return {{}, std::move(path)};
            }
            Recorded recorded;
            const auto add = [&](Changes &all) {
                recorded = record_change(database_, head, history::Kind::edit, options_.commit,
                                         plan.state_before(), plan.state_after(), all);
            };
            if (store_plan(out_, database_, plan_options_, statements, plan, add) == 0) {
                return {recorded, std::nullopt};
            }
        }
        return {{}, kConfigRoot};
    }

    ExitCode commit(const Statements &statements, const std::vector<LineChange> &changes) {
        Stored stored;
        try {
            stored = store(statements);
        } catch (const Failure &failure) {
            throw Failure(failure.code(), with_nothing_done(failure, failure.what(), "nothing was changed"));
        }
        if (stored.meanwhile) {
            throw meanwhile(*stored.meanwhile);
        }
        if (!options_.file.empty()) {
            remove_kept_text(options_.file);
        }
        const Recorded &recorded = stored.recorded;
        Json document = {{"changed", true}, {"lines", line_changes_json(changes)}};
        add_recorded(document, recorded);
        out_.result(document, [&] { print_recorded(out_, recorded); });
        follow_commit(out_, database_, recorded);
        return ExitCode::ok;
    }

    Output &out_;
    const EditOptions &options_;
    PlanOptions plan_options_;
    Database database_;
    Opened opened_;
    EditedFile file_;
    LastWords last_words_;
};

ExitCode edit(Output &out, const EditOptions &options) {
    if (options.discard_kept) {
        if (!options.file.empty() || options.commit.given() || options.yes || options.force) {
            throw Failure(ExitCode::usage, "--discard-kept edits nothing; omit it, or all other arguments");
        }
        return discard_kept_texts(out);
    }
    check_commit_options(options.commit);
    if (!options.yes && (isatty(STDIN_FILENO) != 1 || out.json())) {
        throw Failure(
            ExitCode::usage,
            "edit asks before it commits, and needs a terminal for it; use --yes, or \"aaactl load\" "
            "for a text that exists");
    }
    {
        Database database;
        const history::Store store = store_of(database);
        with_history([&] { refuse_while_waiting(store, store.head()); });
    }
    if (options.file.empty()) {
        note_kept_texts(out);
    }
    return Editing(out, options).run();
}

}  // namespace

void add_edit(Command root) {
    auto options = std::make_shared<EditOptions>();
    Command sub = root.command("edit", "Edit the configuration as text, and commit it",
                               [options](Output &out) { return edit(out, *options); });
    sub.option("FILE", options->file, "A text to go on with, instead of the running configuration");
    add_commit_options(sub, options->commit);
    sub.flag("-y,--yes", options->yes, "Commit without asking, unless the change has errors");
    sub.flag("--force", options->force,
             "Accept lists that name groups that do not exist (yet), items that nothing reads, and errors");
    sub.flag("--discard-kept", options->discard_kept,
             "Delete the texts that earlier edits have kept, and edit nothing");
    sub.footer(
        "The editor is $VISUAL, $EDITOR, editor or vi; the text is that of \"show running-config\", with "
        "sealed keys.\n"
        "The differences and what \"lint\" would say of them are shown before the question. When the text is "
        "wrong, the\n"
        "editor starts again with the message on the line that begins with \"!!\". When another process has "
        "changed\n"
        "the configuration meanwhile, nothing is stored (exit status 1). A text that is not stored is kept, "
        "and its file\n"
        "named: FILE goes on with it. After a terminal that was closed, the next \"edit\" names "
        "it; --discard-kept\n"
        "deletes all such texts of the user in $TMPDIR or /tmp, but those that are being edited.\n"
        "JSON, with --yes: {changed, commit, outside, confirm_until, lines as in \"aaactl diff\"}; with "
        "--discard-kept:\n{changed: false, discarded: [file]}\n"
        "Example: aaactl edit --confirm 10 -m 'New key of the first server'");
}

}  // namespace aaactl
