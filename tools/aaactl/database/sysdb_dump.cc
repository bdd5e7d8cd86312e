// SPDX-License-Identifier: Apache-2.0
//
// sysdb dump and diff.

#include <algorithm>
#include <memory>

#include "database/snapshot.hpp"
#include "database/sysdb.hpp"

namespace aaactl {
namespace {

size_t masked_items(const Dump &dump) {
    return static_cast<size_t>(std::count_if(dump.items.begin(), dump.items.end(),
                                             [](const DumpItem &item) { return item.masked; }));
}

// Whoever keeps the dump as a backup is to know that it is not all there is.
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

ExitCode dump(Output &out, const std::string &path) {
    const std::string directory = directory_path(path);
    Database database;
    if (!database.list(directory)) {
        throw database_failure(directory, SYSDB_ERR_NOT_FOUND);
    }
    const Dump dump = read_snapshot(out, database, directory, out.show_secrets());
    out.result(out.json() ? dump_json(dump) : Json(), [&] {
        out.line(dump_head(directory));
        for (const DumpItem &item : dump.items) {
            out.line((item.fault.empty() ? "" : "# ") + dump_line(item));
        }
    });
    if (const size_t masked = masked_items(dump); masked != 0) {
        out.note("aaactl: values of keys and passwords left out: " + std::to_string(masked) +
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
    Database database;
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
    Command sub = sysdb.command("dump", "Print a directory so that it can be loaded again",
                                [path](Output &out) { return dump(out, *path); });
    sub.option("PATH", *path, "The directory; /cfg/ without one");
    sub.footer(
        "A line is PATH TYPE VALUE, in the database's order; the first is \"aaactl-dump 1 DIRECTORY\". A "
        "masked value\n"
        "(********) is kept by \"load\" as it is stored there; a full backup needs --show-secrets. "
        "What\ncannot be read is told in comments (exit status 3).\n"
        "Read again while somebody changes the directory, so that it is of one time.\n"
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
    sub.option("PATH", *path, "Compare only what is below; all of the dump without it");
    sub.footer(
        "\"-\" is how the dump has it, \"+\" how the database has it. Exit status 1 when they differ.\n"
        "JSON: {directory, differences: [{path, change: added|removed|changed, dump, database}]}, each of "
        "these two\n"
        "{type, value, masked or fault}\n"
        "Example: aaactl sysdb diff backup /cfg/gl/aaa/");
}

}  // namespace aaactl
