// SPDX-License-Identifier: Apache-2.0
//
// show running-config.

#include <memory>

#include "cli/commands.hpp"
#include "database/secret_values.hpp"
#include "database/snapshot.hpp"
#include "running_config/statements.hpp"

namespace aaactl {
namespace {

// A sealed key is shown as it is: only a holder of the master keys can open it.
bool is_sealed(const Item &item) {
    return item.type == SYSDB_TYPE_STRING && !item.bytes.empty() && looks_sealed(text_of(item));
}

// Masks what is secret, and counts it.
size_t mask_secrets(Statements &statements) {
    size_t masked = 0;
    for (Statement &statement : statements) {
        auto *item = std::get_if<ItemStatement>(&statement.what);
        if (item != nullptr && is_secret(item->path, item->item) && !is_sealed(item->item)) {
            item->masked = true;
            ++masked;
        }
    }
    return masked;
}

// Comment lines between the parts make the text easier to read.
std::string with_separators(const Statements &statements) {
    std::string text;
    size_t kind = SIZE_MAX;
    for (size_t i = 0; i < statements.size(); ++i) {
        const bool begins_group = std::holds_alternative<GroupStatement>(statements[i].what);
        const auto *server = std::get_if<ServerStatement>(&statements[i].what);
        const auto *setting = std::get_if<SettingStatement>(&statements[i].what);
        const bool in_group =
            (server != nullptr && server->owner.group) || (setting != nullptr && setting->owner.group);
        const size_t here = in_group || begins_group                  ? 0
                            : server != nullptr || setting != nullptr ? 1
                                                                      : statements[i].what.index();
        if (i != 0 && (begins_group || here != kind)) {
            text += "!\n";
        }
        kind = here;
        text += text_of({statements[i]});
    }
    return text;
}

std::vector<Json> lines_json(const std::string &text) {
    std::vector<Json> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        lines.emplace_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

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
    Statements statements = statements_of(items);
    const size_t masked = out.show_secrets() ? 0 : mask_secrets(statements);
    Json document = {{"lines", Json::array(lines_json(text_of(statements).append(kEnd) + "\n"))},
                     {"masked", masked}};
    if (!comments.empty()) {
        document["faults"] = faults;
    }
    out.result(document, [&] { out.line((with_separators(statements) + comments).append(kEnd)); });
    if (masked != 0) {
        out.note("aaactl: masked values of keys and passwords: " + std::to_string(masked) +
                 " (--show-secrets writes them)");
    }
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
}

}  // namespace aaactl
