// SPDX-License-Identifier: Apache-2.0
//
// sysdb get, set, del, ls and tree.

#include "sysdb/sysdb.hpp"

#include <unistd.h>

#include <memory>
#include <optional>

#include "cli/secret_input.hpp"
#include "commits/recording.hpp"
#include "config/groups.hpp"
#include "config/references.hpp"
#include "database/schema.hpp"
#include "database/secret_values.hpp"

namespace aaactl {
namespace {

constexpr size_t kMaxValue = 1024 * 1024;

// ---- get

// Tells a directory from a path that does not exist.
void check_is_no_directory(Database &database, const std::string &path) {
    const std::string directory = path.ends_with('/') ? path : path + "/";
    const bool has_tree =
        directory == "/" || directory.starts_with("/cfg/") || directory.starts_with("/oper/");
    if (has_tree && directory.find("//") == std::string::npos && database.list(directory)) {
        throw Failure(ExitCode::usage, escaped(path) +
                                           ": a directory, not an item; list it with \"aaactl sysdb ls " +
                                           shell_word(escaped(directory)) +
                                           "\", or everything below it with \"aaactl sysdb tree " +
                                           shell_word(escaped(directory)) + "\"");
    }
}

ExitCode get(Output &out, const std::string &path) {
    Database database(Database::Use::reading);
    if (path.ends_with('/') || !path.starts_with("/") || !database.find(path)) {
        check_is_no_directory(database, path);
    }
    const Item item = database.get(path);
    out.result(item_json(out, path, item), [&] { out.line(shown_value(out, path, item, true)); });
    return ExitCode::ok;
}

void add_get(Command sysdb) {
    auto path = std::make_shared<std::string>();
    Command sub =
        sysdb.command("get", "Print the value of one item", [path](Output &out) { return get(out, *path); });
    sub.option("PATH", *path, "The item, below /cfg/ or /oper/").required();
    sub.footer(
        "JSON: {path, type, value}; \"masked\": true instead of the value of a secret.\n"
        "Example: aaactl sysdb get /cfg/gl/aaa/authentication/login/default");
}

// ---- set

struct SetOptions {
    std::string path;
    std::string value = "-";
    std::string type;
    bool allow_secret = false;
    bool force = false;
};

// The type of the option, else of the stored item.
uint32_t type_to_set(Database &database, const SetOptions &options) {
    if (!options.type.empty()) {
        return type_number(options.type);
    }
    if (options.path.ends_with('/')) {
        return SYSDB_TYPE_DIRECTORY;
    }
    if (const auto before = database.find(options.path)) {
        return before->type;
    }
    throw Failure(ExitCode::usage, escaped(options.path) + ": no such item yet; give its type with --type");
}

// On a terminal only a secret is typed without seeing it.
std::string read_value(const SetOptions &options) {
    if (isatty(STDIN_FILENO) != 1 || is_secret_path(options.path)) {
        return read_secret("Value: ", kMaxValue);
    }
    auto value = read_answer("Value: ", true, kMaxValue);
    if (!value || value->empty()) {
        throw Failure(ExitCode::usage, "standard input is empty");
    }
    return *std::move(value);
}

std::string value_to_set(const SetOptions &options) {
    if (options.value == "-") {
        return read_value(options);
    }
    if (!options.allow_secret && (is_secret_path(options.path) || looks_sealed(options.value))) {
        throw Failure(
            ExitCode::usage,
            "a secret does not belong on a command line, where every user can read it: omit VALUE and "
            "give it on standard input, or use --allow-secret-argument");
    }
    return options.value;
}

void check_schema(Database &database, const SetOptions &options, const Item &item) {
    if (options.force) {
        return;
    }
    ExitCode code = ExitCode::negative;
    std::string fault = hidden_fault(options.path);
    if (fault.empty()) {
        fault = schema_fault(options.path, item);
        code = ExitCode::bad_input;
    }
    if (fault.empty() && options.path.starts_with(kConfigRoot)) {
        fault = reference_fault(options.path, item, config_paths(database));
        code = ExitCode::negative;
    }
    if (!fault.empty()) {
        throw Failure(code, escaped(options.path) + ": " + fault + " (--force stores it all the same)");
    }
}

ExitCode set(Output &out, const SetOptions &options) {
    Database database;
    Item item{type_to_set(database, options), {}};
    if (item.type == SYSDB_TYPE_DIRECTORY) {
        directory_path(options.path);
    } else {
        std::string value = value_to_set(options);
        item = item_for(options.path, item.type, [&] { return item_from_argument(item.type, value); });
        wipe(value);
    }
    check_schema(database, options, item);
    database.set(options.path, item);
    out.result(item_json(out, options.path, item), [] {});
    if (options.path.starts_with(kConfigRoot)) {
        note_goes_back_too(out, database);
    }
    return ExitCode::ok;
}

void add_set(Command sysdb) {
    auto options = std::make_shared<SetOptions>();
    Command sub = sysdb.command("set", "Create or replace one item",
                                [options](Output &out) { return set(out, *options); });
    sub.option("PATH", options->path, "The item; with a trailing '/', a directory to create").required();
    sub.option("VALUE", options->value,
               "The value; by default, and for \"-\", it is read from standard input");
    sub.option("--type", options->type,
               "u32, string, tuple, directory or bytes:NUMBER (any other type, its value in hexadecimal); "
               "without it the item keeps its type")
        .type("TYPE");
    sub.flag("--allow-secret-argument", options->allow_secret,
             "Take the value of a key or password from the command line");
    sub.flag("--force", options->force,
             "Store what the AAA service does not read at this path, too, and in the history");
    sub.footer(
        "Below /cfg/gl/aaa/ only what sysdb(5) describes is stored, and nothing below /cfg/.history/, unless "
        "--force.\n"
        "JSON: as in \"sysdb get\"\n"
        "Examples: aaactl sysdb set /cfg/site/name --type string 'Building 4'\n"
        "          aaactl sysdb set /cfg/gl/aaa/authentication/login/default --type tuple "
        "'10,4,0,0,\"corp\",\"\",\"\",\"\"'\n"
        "          aaactl key seal | aaactl sysdb set /cfg/site/key --type string");
}

// ---- del

// A user who deletes the history wants to lose its records, not the way back to the configuration that
// worked.
void refuse_to_forget_waiting(Database &database, const std::string &target) {
    std::optional<history::Head> head;
    const history::Store store = store_of(database);
    try {
        head = store.head();
    } catch (const history::Error &) {  // what is damaged can be deleted
        return;
    }
    with_history([&] {
        if (is_needed_to_go_back(store, *head, target)) {
            refuse_while_waiting(store, *head,
                                 "; without " + escaped(target) + " nothing would go back from it");
        }
    });
}

ExitCode del(Output &out, const std::string &path, bool recursive, bool force) {
    Database database;  // "/cfg/" without what is hidden there
    const bool directory = recursive || path.ends_with('/');
    const std::string target = directory ? directory_path(path) : path;
    const std::string fault = hidden_fault(target);
    if (!fault.empty() && !force) {
        throw Failure(ExitCode::negative,
                      escaped(target) + ": " + fault + " (--force deletes it all the same)");
    }
    if (!fault.empty()) {
        refuse_to_forget_waiting(database, target);
    }
    if (directory && !recursive) {
        const auto entries = database.list(target);
        if (entries && !entries->empty()) {
            throw Failure(
                ExitCode::usage,
                escaped(path) +
                    ": a directory that is not empty; --recursive deletes it with everything below");
        }
    }
    if (!database.remove(target)) {
        const bool is_directory = !directory && database.list(target + '/').has_value();
        throw is_directory ? Failure(ExitCode::not_found,
                                     escaped(path) + ": a directory, not an item; --recursive deletes it")
                           : database_failure(path, SYSDB_ERR_NOT_FOUND);
    }
    out.result({{"path", escaped(target)}, {"deleted", true}}, [] {});
    if (target.starts_with(kConfigRoot)) {
        note_goes_back_too(out, database);
    }
    return ExitCode::ok;
}

void add_del(Command sysdb) {
    auto path = std::make_shared<std::string>();
    auto recursive = std::make_shared<bool>(false);
    auto force = std::make_shared<bool>(false);
    Command sub =
        sysdb.command("del", "Delete one item, or a directory",
                      [path, recursive, force](Output &out) { return del(out, *path, *recursive, *force); });
    sub.also({"delete", "rm"});
    sub.option("PATH", *path, "The item or the directory").required();
    sub.flag("-r,--recursive", *recursive,
             "PATH is a directory: delete it with everything below, as one change");
    sub.flag("--force", *force, "Delete the history of the configuration, or parts of it, too");
    sub.footer(
        "What going back from a commit that waits for its confirmation needs is not deleted, with --force "
        "neither.\nJSON: {path, deleted}\nExample: aaactl sysdb del --recursive /oper/aaa/gl/group-server/");
}

// ---- ls and tree

// A stored value may not fit its type: its fault is shown instead and repeated at the end, where the exit
// status reports it.
struct Reading {
    std::optional<Item> item;
    std::string fault;
};

Reading read_entry(Database &database, const std::string &path) {
    Reading reading;
    reading.item = database.find(path, reading.fault);
    return reading;
}

Json entry_json(const Output &out, const std::string &path, const Entry &entry, const Reading &reading) {
    Json document = {{"name", escaped(entry.name)}, {"type", type_name(entry.type)}};
    if (reading.item) {
        Json whole = item_json(out, path, *reading.item);
        whole.erase("path");
        document.update(whole);
    } else if (!reading.fault.empty()) {
        document["fault"] = reading.fault;
    }
    return document;
}

std::string entry_value(const Output &out, const std::string &path, const Reading &reading) {
    return reading.item ? shown_value(out, path, *reading.item) : out.styled(Style::bad, reading.fault);
}

struct Listed {
    std::string path;
    Entry entry;
    Reading reading;
};

ExitCode note_faults(Output &out, const std::vector<Unreadable> &faults) {
    for (const Unreadable &item : faults) {
        out.note("aaactl: " + escaped(item.path) + ": " + item.fault);
    }
    return faults.empty() ? ExitCode::ok : ExitCode::bad_input;
}

void add_fault(const Listed &listed, std::vector<Unreadable> &faults) {
    if (!listed.reading.fault.empty()) {
        faults.push_back({listed.path, listed.entry.type, listed.reading.fault});
    }
}

std::vector<Listed> read_level(Database &database, const std::string &directory,
                               const std::vector<Entry> &entries, bool values) {
    std::vector<Listed> level;
    for (const Entry &entry : entries) {
        const std::string path = directory + entry.name;
        level.push_back(
            {path, entry, values && !entry.is_directory() ? read_entry(database, path) : Reading{}});
    }
    return level;
}

// The entries of a directory, or the item itself.
std::vector<Listed> level_of(Database &database, const std::string &path, bool values) {
    const std::string directory = directory_path(path.empty() ? "/" : path, true);
    if (const auto entries = database.list(directory)) {
        return read_level(database, directory, *entries, values);
    }
    if (!path.ends_with('/')) {
        const Item item = database.get(path);
        return {{path, {path, item.type}, {item, {}}}};
    }
    throw database_failure(path, SYSDB_ERR_NOT_FOUND);
}

ExitCode ls(Output &out, const std::string &path, bool long_form, bool all) {
    Database database(Database::Use::reading);
    if (all) {
        database.show_hidden();
    }
    const std::vector<Listed> level = level_of(database, path, long_form);
    Json document = {{"path", escaped(path)}, {"entries", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    std::vector<Unreadable> faults;
    for (const Listed &listed : level) {
        add_fault(listed, faults);
        document["entries"].push_back(entry_json(out, listed.path, listed.entry, listed.reading));
        const std::string name = out.styled(listed.entry.is_directory() ? Style::strong : Style::plain,
                                            escaped(listed.entry.name));
        rows.push_back(long_form
                           ? std::vector<std::string>{type_name(listed.entry.type), name,
                                                      listed.entry.is_directory()
                                                          ? ""
                                                          : entry_value(out, listed.path, listed.reading)}
                           : std::vector<std::string>{name});
    }
    out.result(document, [&] { out.table({}, rows); });
    return note_faults(out, faults);
}

void add_ls(Command sysdb) {
    auto path = std::make_shared<std::string>("/");
    auto long_form = std::make_shared<bool>(false);
    auto all = std::make_shared<bool>(false);
    Command sub = sysdb.command("ls", "List one level of a directory", [path, long_form, all](Output &out) {
        return ls(out, *path, *long_form, *all);
    });
    sub.also({"list"});
    sub.option("PATH", *path, "The directory (default: /)");
    sub.flag("-l,--long", *long_form, "Types and values too");
    sub.flag("-a,--all", *all, kAllHelp);
    sub.footer(
        "With -l: exit status 3 when a value cannot be read; the others are shown.\n"
        "JSON: {path, entries: [{name, type, with -l also value, masked or fault}]}\n"
        "Example: aaactl sysdb ls -l /cfg/gl/aaa/authentication/login/");
}

struct Branch {
    std::vector<std::string> lines;
    Json entries = Json::array();
    std::string fault;
};

void grow(Output &out, Database &database, const std::string &directory, const std::string &indent,
          Branch &branch, std::vector<Unreadable> &faults) {
    const std::vector<Listed> level = read_level(
        database, directory, database.list(directory, branch.fault).value_or(std::vector<Entry>{}), true);
    for (size_t i = 0; i < level.size(); ++i) {
        const Listed &listed = level[i];
        const bool last = i + 1 == level.size();
        const std::string stem = indent + out.styled(Style::dim, last ? "└── " : "├── ");
        const std::string name = escaped(listed.entry.name);
        Json document = entry_json(out, listed.path, listed.entry, listed.reading);
        add_fault(listed, faults);
        if (!listed.entry.is_directory()) {
            branch.lines.push_back(stem + name + out.styled(Style::dim, " = ") +
                                   entry_value(out, listed.path, listed.reading));
        } else {
            Branch below;
            grow(out, database, listed.path, indent + out.styled(Style::dim, last ? "    " : "│   "), below,
                 faults);
            branch.lines.push_back(stem + out.styled(Style::strong, name) + (below.fault.empty() ? "" : " ") +
                                   out.styled(Style::bad, below.fault));
            branch.lines.insert(branch.lines.end(), below.lines.begin(), below.lines.end());
            document["entries"] = std::move(below.entries);
            if (!below.fault.empty()) {
                document["fault"] = below.fault;
                faults.push_back({listed.path, listed.entry.type, below.fault});
            }
        }
        branch.entries.push_back(std::move(document));
    }
}

ExitCode tree(Output &out, const std::string &path, bool all) {
    Database database(Database::Use::reading);
    if (all) {
        database.show_hidden();
    }
    const std::string directory = directory_path(path, true);
    if (!database.list(directory)) {
        throw database_failure(directory, SYSDB_ERR_NOT_FOUND);
    }
    Branch root;
    std::vector<Unreadable> faults;
    grow(out, database, directory, "", root, faults);
    out.result({{"path", escaped(directory)}, {"entries", root.entries}}, [&] {
        out.line(out.styled(Style::strong, escaped(directory)));
        for (const std::string &line : root.lines) {
            out.line(line);
        }
    });
    return note_faults(out, faults);
}

void add_tree(Command sysdb) {
    auto path = std::make_shared<std::string>("/");
    auto all = std::make_shared<bool>(false);
    Command sub = sysdb.command("tree", "Draw everything below a directory, with values",
                                [path, all](Output &out) { return tree(out, *path, *all); });
    sub.option("PATH", *path, "The directory (default: /)");
    sub.flag("-a,--all", *all, kAllHelp);
    sub.footer(
        "Exit status 3 when something cannot be read; the rest is shown.\n"
        "JSON: {path, entries: [{name, type, value, masked or fault, of a directory entries}]}\n"
        "Example: aaactl sysdb tree /oper/aaa/");
}

}  // namespace

Json item_json(const Output &out, const std::string &path, const Item &item) {
    Json document = {{"path", escaped(path)}, {"type", type_name(item.type)}};
    if (item.type == SYSDB_TYPE_DIRECTORY) {
        return document;
    }
    if (!out.show_secrets() && is_secret(path, item)) {
        document["masked"] = true;
    } else {
        document["value"] = value_json(item);
    }
    return document;
}

std::string shown_value(const Output &out, const std::string &path, const Item &item, bool plain) {
    return !out.show_secrets() && is_secret(path, item) ? std::string(kMask) : value_text(item, plain);
}

void add_sysdb(Command root) {
    Command sysdb = root.group("sysdb", "Read, change and watch the system database");
    sysdb.footer(
        "Unprintable text is shown with \\n, \\t, \\r, \\\\ and \\xNN, in JSON strings too. "
        "Values of keys and\n"
        "passwords are masked unless --show-secrets. Files: see AAA_SYSDB_CFG_DIR and AAA_SYSDB_RUN_DIR.");
    add_get(sysdb);
    add_set(sysdb);
    add_del(sysdb);
    add_ls(sysdb);
    add_tree(sysdb);
    add_sysdb_watch(sysdb);
    add_sysdb_dump(sysdb);
    add_sysdb_load(sysdb);
    add_sysdb_diff(sysdb);
}

}  // namespace aaactl
