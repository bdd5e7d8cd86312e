// SPDX-License-Identifier: Apache-2.0
//
// show running-config.

#include <memory>

#include "cli/commands.hpp"
#include "database/snapshot.hpp"
#include "running_config/shown.hpp"

namespace aaactl {
namespace {

ExitCode show(Output &out) {
    Database database(Database::Use::reading);
    const Dump stored = read_snapshot(out, database, kConfigRoot, true);
    out.end_progress();
    Items items;
    Json faults = Json::array();
    std::string comments;
    for (const DumpItem &item : stored.items) {
        if (item.fault.empty()) {
            items[item.path] = item.item;
            continue;
        }
        faults.push_back({{"path", escaped(item.path)}, {"fault", item.fault}});
        comments += "! " + escaped(item.path) + ": " + item.fault + "\n";
        out.note("aaactl: " + escaped(item.path) + ": " + item.fault + "; it is not in the text");
    }
    const ShownConfiguration configuration = shown_configuration(out, items);
    Json document = {{"lines", Json::array(lines_json(configuration.plain + std::string(kEnd) + "\n"))},
                     {"masked", configuration.masked}};
    if (!comments.empty()) {
        document["faults"] = faults;
    }
    out.result(document, [&] { out.line((configuration.text + comments).append(kEnd)); });
    note_masked(out, configuration.masked);
    return comments.empty() ? ExitCode::ok : ExitCode::bad_input;
}

}  // namespace

void add_running_config(Command root) {
    Command group = root.group("show", "Print the configuration in the words of network devices");
    Command sub = group.command("running-config", "Print groups, servers, settings and method lists as text",
                                [](Output &out) { return show(out); });
    sub.footer(
        "\"aaactl load\" takes the text again. It holds everything below /cfg/gl/aaa/: what has no words is "
        "printed\n"
        "as \"item PATH TYPE VALUE\". Keys are sealed (key 7); they can be opened where the same master keys "
        "are. Other\n"
        "secret values are masked, and \"load\" keeps the stored ones. Exit status 3 when something cannot "
        "be "
        "read: it\n"
        "is a comment. The last line is \"end\": \"load --replace\" refuses a text without it, which may be "
        "cut.\n"
        "JSON: {lines: [the text without separators], masked, faults: [{path, fault}] if any}\n"
        "Example: aaactl show running-config >corp.conf");
    add_show_commit(group);
}

}  // namespace aaactl
