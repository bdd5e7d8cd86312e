// SPDX-License-Identifier: Apache-2.0
//
// diff.

#include <memory>

#include "cli/commands.hpp"
#include "history/reference.hpp"
#include "history/text_diff.hpp"

namespace aaactl {
namespace {

struct DiffOptions {
    std::string from = "last";
    std::string to = "running";
};

ExitCode diff(Output &out, const DiffOptions &options) {
    Database database(Database::Use::reading);
    check_database_exists(database);
    const history::Store store = store_of(database);
    const Version from = find_version(store, options.from);
    const Version to = find_version(store, options.to);
    const std::vector<LineChange> changes = line_changes(out, from.items, to.items);
    out.result({{"from", from.word()},
                {"to", to.word()},
                {"same", changes.empty()},
                {"lines", line_changes_json(changes)}},
               [&] {
                   if (!changes.empty()) {
                       out.line(out.styled(Style::strong, "--- " + from.name()));
                       out.line(out.styled(Style::strong, "+++ " + to.name()));
                   }
                   print_line_changes(out, changes);
               });
    return changes.empty() ? ExitCode::ok : ExitCode::negative;
}

}  // namespace

void add_diff(Command root) {
    auto options = std::make_shared<DiffOptions>();
    Command sub = root.command("diff", "Compare two commits, or a commit with the running configuration",
                               [options](Output &out) { return diff(out, *options); });
    sub.option(
        "REV", options->from,
        "The commit before: its number, its label (the newest that has it), or \"last\" (default: last)");
    sub.option("OTHER", options->to, "The one after; \"running\" is what is stored now (default: running)");
    sub.footer(
        "\"-\" is a line of the first only, \"+\" one of the second only; lines of a server group follow the "
        "line that\nnames it. Secrets are masked. Exit status 1 when they differ.\n"
        "JSON: {from, to, same, lines: [{change: added|removed, line, group: the line of its server group, "
        "if "
        "any}]}\n"
        "Examples: aaactl diff\n"
        "          aaactl diff before-upgrade 12");
}

}  // namespace aaactl
