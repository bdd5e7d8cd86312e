// SPDX-License-Identifier: Apache-2.0
//
// report: the configuration and the service's state as a file for people.

#include <memory>

#include "cli/commands.hpp"
#include "cli/output_file.hpp"
#include "report/page.hpp"

namespace aaactl {
namespace {

struct ReportOptions {
    std::string file;
    ControlOptions control;
};

ExitCode report(Output &out, const ReportOptions &options) {
    const Facts facts = gather_facts(options.control);
    write_file(options.file, report_page(facts));
    const size_t errors = count(facts.checked.findings, Severity::error);
    const size_t warnings = count(facts.checked.findings, Severity::warning);
    const Json document = {{"file", escaped(options.file)},
                           {"server_groups", facts.groups.size()},
                           {"method_lists", facts.lists.size()},
                           {"errors", errors},
                           {"warnings", warnings},
                           {"service", !facts.status.is_null()}};
    out.result(document, [&] {
        if (facts.status.is_null()) {
            out.note("aaactl: the report has no states and counters: " + facts.no_service);
        }
    });
    return ExitCode::ok;
}

}  // namespace

void add_report(Command root) {
    auto options = std::make_shared<ReportOptions>();
    Command sub =
        root.command("report", "Write the configuration and the state of the servers as a page of HTML",
                     [options](Output &out) { return report(out, *options); });
    sub.option("-o,--output", options->file, "The file to write").type("FILE").required();
    add_control_options(sub, options->control);
    sub.footer(
        "One file, without scripts, that loads nothing: groups and servers, method lists as diagrams, what "
        "lint finds,\n"
        "and, from a running aaad, states and counters. Keys are not in it, sealed neither.\n"
        "Names, addresses and user names in messages are: give it only to those who may know them.\n"
        "Exit status: 0 written, also with findings and without the service, 5 no database.\n"
        "JSON: {file, server_groups, method_lists, errors, warnings, service}\n"
        "Example: aaactl report -o report.html");
}

}  // namespace aaactl
