// SPDX-License-Identifier: Apache-2.0
//
// sysdb dump and diff.

#include <algorithm>
#include <memory>

#include "database/snapshot.hpp"
#include "sysdb/sysdb.hpp"

namespace aaactl {
namespace {

size_t masked_items(const Dump &dump) {
    return static_cast<size_t>(std::count_if(dump.items.begin(), dump.items.end(),
                                             [](const DumpItem &item) { return item.masked; }));
}

// A user who keeps the dump as a backup has to know that it is incomplete.
size_t note_faults(Output &out, const Dump &dump) {
    size_t faults = 0;
    for (const DumpItem &item : dump.items) {
        if (!item.fault.empty()) {
            out.note("aaactl: " + escaped(item.path) + ": " + item.fault + "; it is not in the dump");
            ++faults;
        }
    }
    return faults;
}

ExitCode dump(Output &out, const std::string &path, bool all) {
    const std::string directory = directory_path(path);
    Database database(Database::Use::reading);
    if (all) {
        database.show_hidden();
    }
    if (!database.list(directory)) {
        throw database_failure(directory, SYSDB_ERR_NOT_FOUND);
    }
    const Dump dump = read_snapshot(out, database, directory, out.show_secrets());
    out.result(out.json() ? dump_json(dump) : Json(), [&] {
        out.line(dump_head(directory));
        for (const DumpItem &item : dump.items) {
            out.line((item.fault.empty() ? "" : "# ") + dump_line(item));
        }
        out.line(dump_end(dump));
    });
    if (const size_t masked = masked_items(dump); masked != 0) {
        out.note("aaactl: masked values of keys and passwords: " + std::to_string(masked) +
                 " (--show-secrets writes them)");
    }
    return note_faults(out, dump) == 0 ? ExitCode::ok : ExitCode::bad_input;
}

// What is compared: the whole dump, or the part of it below a path.
std::string directory_to_compare(const Dump &dump, const std::string &path) {
    if (path.empty()) {
        return dump.directory;
    }
    const std::string directory = directory_path(path);
    if (!directory.starts_with(dump.directory)) {
        throw Failure(ExitCode::usage, escaped(path) + ": the dump is of " + escaped(dump.directory));
    }
    return directory;
}

ExitCode diff(Output &out, const std::string &file, const std::string &path) {
    const Dump dump = read_dump(out, file);
    const std::string directory = directory_to_compare(dump, path);
    Database database(Database::Use::reading);
    if (holds_hidden(dump)) {
        database.show_hidden();
    }
    const Dump stored = read_snapshot(out, database, directory, true);
    const std::vector<Difference> differences = compare(dump, stored, directory);
    Json document = {{"directory", escaped(directory)}, {"differences", Json::array()}};
    for (const Difference &difference : differences) {
        document["differences"].push_back(
            item_change_json(out, {difference.dump, difference.stored}, "dump", "database"));
    }
    out.result(document, [&] {
        for (const Difference &difference : differences) {
            print_item_change(out, {difference.dump, difference.stored});
        }
    });
    return differences.empty() ? ExitCode::ok : ExitCode::negative;
}

}  // namespace

void add_sysdb_dump(Command sysdb) {
    auto path = std::make_shared<std::string>("/cfg/");
    auto all = std::make_shared<bool>(false);
    Command sub = sysdb.command("dump", "Print a directory so that it can be loaded again",
                                [path, all](Output &out) { return dump(out, *path, *all); });
    sub.option("PATH", *path, "The directory (default: /cfg/)");
    sub.flag("-a,--all", *all, kAllHelp);
    sub.footer(
        "A line is PATH TYPE VALUE, in the database's order; the first is \"aaactl-dump 1 DIRECTORY\". The "
        "last is\n\"# end: N items\": \"load --replace\" refuses a dump without it, which may be cut. A "
        "masked "
        "value\n"
        "(********) makes \"load\" keep the stored value; a full backup needs --show-secrets. "
        "Items that\ncannot be read are reported in comments (exit status 3).\n"
        "The directory is read again if it changes meanwhile, so that the dump is of one time.\n"
        "JSON: {format, version, directory, items: [{path, type, value or masked}], faults: [{path, type, "
        "fault}] if any}\n"
        "Example: aaactl sysdb dump --show-secrets /cfg/ >backup");
}

void add_sysdb_diff(Command sysdb) {
    auto file = std::make_shared<std::string>();
    auto path = std::make_shared<std::string>();
    Command sub = sysdb.command("diff", "Compare the database with a dump",
                                [file, path](Output &out) { return diff(out, *file, *path); });
    sub.option("FILE", *file, "The dump, text or JSON; - for standard input").required();
    sub.option("PATH", *path, "Compare only this directory (default: all of the dump)");
    sub.footer(
        "\"-\" is the dump's item, \"+\" the database's. Exit status 1 when they differ.\n"
        "JSON: {directory, differences: [{path, change: added|removed|changed, dump, database}]}, each of "
        "these two\n"
        "{type, value, masked or fault}\n"
        "Example: aaactl sysdb diff backup /cfg/gl/aaa/");
}

}  // namespace aaactl
