// SPDX-License-Identifier: Apache-2.0
//
// report: the configuration and the service's state as a file for people.

#include <memory>
#include <optional>

#include "cli/commands.hpp"
#include "cli/output_file.hpp"
#include "report/page.hpp"

namespace aaactl {
namespace {

constexpr char kStandardOutput[] = "-";

struct ReportOptions {
    std::string file;
    ControlOptions control;
};

// What the page lacks; none when it has all.
std::optional<Failure> missing_part(const Facts &facts) {
    if (!facts.no_database.empty()) {
        return Failure(facts.database, "the report has no configuration: " + facts.no_database);
    }
    if (facts.status.is_null()) {
        return Failure(ExitCode::unavailable, "the report has no states and counters: " + facts.no_service);
    }
    return std::nullopt;
}

void write_page(Output &out, const std::string &file, const std::string &page) {
    if (file != kStandardOutput) {
        write_private_file(file, page);
        return;
    }
    out.line(std::string_view(page).substr(0, page.size() - 1));  // line() adds the line feed
}

ExitCode report(Output &out, const ReportOptions &options) {
    if (options.file == kStandardOutput && out.json()) {
        throw Failure(ExitCode::usage, "-o - prints the page; with --json, name a file for it");
    }
    const Facts facts = gather_facts(options.control);
    write_page(out, options.file, report_page(facts));
    const Json document = {{"file", escaped(options.file)},
                           {"server_groups", facts.groups.size()},
                           {"method_lists", facts.lists.size()},
                           {"commits", facts.history.commits},
                           {"errors", count(facts.checked.findings, Severity::error)},
                           {"warnings", count(facts.checked.findings, Severity::warning)},
                           {"database", facts.no_database.empty()},
                           {"service", !facts.status.is_null()}};
    if (const std::optional<Failure> missing = missing_part(facts)) {
        throw missing->with(document);
    }
    out.result(document, [] {});
    return ExitCode::ok;
}

}  // namespace

void add_report(Command root) {
    auto options = std::make_shared<ReportOptions>();
    Command sub =
        root.command("report", "Write the configuration and the state of the servers as a page of HTML",
                     [options](Output &out) { return report(out, *options); });
    sub.option("-o,--output", options->file, "The file to write; - for standard output")
        .type("FILE")
        .required();
    add_control_options(sub, options->control);
    sub.footer(
        "One file, without scripts, that loads nothing: groups and servers, method lists as diagrams, what "
        "lint finds,\n"
        "the last commits, and, from a running aaad, states and counters. Keys are not in it, sealed "
        "neither.\n"
        "Names, addresses and user names in messages are: give it only to those who may know them. The file "
        "has at\n"
        "most the mode 0640; a link or file that another user put there is refused.\n"
        "Exit status: 0 written, also with findings; 5 written, but the database or the service cannot be "
        "asked, as\n"
        "the page says; 3 written, but the database is damaged; 6 not written.\n"
        "JSON: {file, server_groups, method_lists, commits, errors, warnings, database, service}\n"
        "Example: aaactl report -o report.html");
}

}  // namespace aaactl
