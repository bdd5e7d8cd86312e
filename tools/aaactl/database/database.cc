// SPDX-License-Identifier: Apache-2.0
//
// Calls the database, and turns its result codes into failures that name the
// path and a remedy.

#include "database/database.hpp"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "cli/stored.hpp"
#include "cli/suggestion.hpp"
#include "platform/cerr.h"
#include "platform/control.h"
#include "platform/sysdb_changes.h"

namespace aaactl {
namespace {

constexpr std::string_view kTrees[] = {"/cfg/", "/oper/"};
constexpr std::string_view kHiddenEntry = ".history/";

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};

struct FreeList {
    void operator()(void *list) const { sysdb_list_free(list); }
};

ExitCode exit_code(cerrno rc) {
    switch (rc) {
        case SYSDB_ERR_NOT_FOUND:
            return ExitCode::not_found;
        case SYSDB_ERR_BAD_PATH:
        case SYSDB_ERR_PATH_TOO_LONG:
            return ExitCode::usage;
        case SYSDB_ERR_BAD_VALUE:
        case SYSDB_ERR_TYPE_MISMATCH:
        case SYSDB_ERR_VALUE_TOO_LARGE:
            return ExitCode::bad_input;
        case SYSDB_ERR_LIB_ABSENT:
        case SYSDB_ERR_ACCESS:
        case SYSDB_ERR_READ_ONLY:
        case SYSDB_ERR_STORAGE:
        case SYSDB_ERR_CORRUPT:
        case SYSDB_ERR_BUSY:
        case SYSDB_ERR_CONNECTION_LOST:
            return ExitCode::unavailable;
        default:
            return exit_code_of(rc);
    }
}

const char *hint(cerrno rc) {
    switch (rc) {
        case SYSDB_ERR_ACCESS:
        case SYSDB_ERR_READ_ONLY:
            return " (run as root or as a member of the database's group)";
        case SYSDB_ERR_STORAGE:
            return " (see AAA_SYSDB_CFG_DIR and AAA_SYSDB_RUN_DIR)";
        case SYSDB_ERR_CORRUPT:
            return " (restore a backup)";
        case SYSDB_ERR_BAD_PATH:
            return " (use an absolute path below /cfg/ or /oper/ without an empty component)";
        case SYSDB_ERR_TOO_MANY_CHANGES:
            return " (start its servers with larger --max-txn-ops and --max-request-bytes, or make the "
                   "change "
                   "in parts)";
        default:
            return "";
    }
}

// Names the file, which a user can correct, instead of a path of the database.
Failure no_provider() {
    char fault[4096] = "";
    aaa_platform_sysdb_fault(fault, sizeof fault);
    const bool is_named = std::string_view(fault).starts_with("AAA_SYSDB_PROVIDER");
    return {ExitCode::unavailable,
            "there is no system database: " + escaped(fault) +
                (is_named ? "; correct the variable, or unset it to use the installed provider"
                          : "; install a provider, or name one in AAA_SYSDB_PROVIDER"),
            SYSDB_ERR_LIB_ABSENT, Failure::Verbatim{}};
}

// What the database says of a path, where there is none that could say it.
cerrno path_fault(std::string_view path, bool is_directory) {
    constexpr size_t kLongest = 511;
    const bool has_control =
        std::any_of(path.begin(), path.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; });
    return path.size() > kLongest ? SYSDB_ERR_PATH_TOO_LONG
           : has_control || path.find("//") != std::string_view::npos || path.ends_with('/') != is_directory
               ? SYSDB_ERR_BAD_PATH
               : 0;
}

// Why the platform refuses a path that it has listed: another program stored such a value or name.
std::string fault_or_failure(const std::string &path, cerrno rc) {
    switch (rc) {
        case 0:
            return "";
        case SYSDB_ERR_BAD_VALUE:
            return "value does not fit its type";
        case SYSDB_ERR_BAD_PATH:
        case SYSDB_ERR_PATH_TOO_LONG:
            return "its name cannot be part of a path";
        default:
            throw database_failure(path, rc);
    }
}

std::vector<Entry> entries_of(sysdb_list_t list, const std::string &directory) {
    std::vector<Entry> entries;
    char *name = nullptr;
    uint32_t type = 0;
    cerrno rc;
    while ((rc = sysdb_list_next(list, &name, &type, 0)) == 0 && name != nullptr) {
        entries.push_back({name, type});
    }
    if (rc != 0 && rc != SYSDB_ERR_END_OF_LIST) {
        throw database_failure(directory, rc);
    }
    return entries;
}

}  // namespace

Failure database_failure(std::string_view path, cerrno rc) {
    if (rc == SYSDB_ERR_LIB_ABSENT) {
        forget_log_lines();
        return no_provider();
    }
    // A line of the platform names the file and the remedy.
    return {exit_code(rc),
            escaped(path) + ": " + escaped(cerr_strerror(rc)) + (has_log_lines() ? "" : hint(rc)), rc,
            Failure::Verbatim{}};
}

std::string with_nothing_done(const Failure &failure, const std::string &text, const std::string &clause) {
    return failure.rc() == SYSDB_ERR_OUTCOME_UNKNOWN ? text : followed_by(text, clause);
}

Database::~Database() {
    for (const Bound &bound : bound_) {
        _sysdb_unbind(bound.handle);  // 0 is none
    }
}

sysdb_conn_t Database::connection(const std::string &directory) {
    for (const Bound &bound : bound_) {
        if (bound.directory == directory) {
            return bound.handle;
        }
    }
    Bound bound{directory, 0};
    cerrno rc = SYSDB_ERR_INVALID_ARG;
    if (use_ == Use::reading) {
        rc = _sysdb_bind(&bound.handle, directory.c_str(), SYSDB_BIND_PRIVATE | SYSDB_BIND_EXISTING);
    }
    if (rc == SYSDB_ERR_INVALID_ARG) {  // a provider without files, or an older one
        rc = _sysdb_bind(&bound.handle, directory.c_str(), SYSDB_BIND_PRIVATE);
    }
    if (rc != 0 && !(use_ == Use::reading && rc == SYSDB_ERR_NOT_FOUND)) {
        throw database_failure(directory, rc);
    }
    bound_.push_back(bound);
    return bound.handle;
}

Database::Place Database::place_of(const std::string &path) {
    for (const std::string_view tree : kTrees) {
        // A NUL would end the path for the database.
        if (path.starts_with(tree) && path.find('\0') == std::string::npos) {
            return {connection(std::string(tree)), path.c_str() + tree.size()};
        }
    }
    throw database_failure(path, SYSDB_ERR_BAD_PATH);
}

void Database::pretend(const std::string &directory, const std::map<std::string, Item> &items) {
    pretended_below_ = directory;
    pretended_ = &items;
}

// As the database lists it: an item and a directory may have the same name, and names that are numbers have
// the order of numbers, which is not that of the map.
std::optional<std::vector<Entry>> Database::pretended_level(const std::string &directory) const {
    std::vector<Entry> entries;
    bool exists = false;
    for (auto at = pretended_->lower_bound(directory);
         at != pretended_->end() && at->first.starts_with(directory); ++at) {
        exists = true;
        const std::string rest = at->first.substr(directory.size());
        const size_t slash = rest.find('/');
        const Entry entry = slash == std::string::npos
                                ? Entry{rest, at->second.type}
                                : Entry{rest.substr(0, slash + 1), SYSDB_TYPE_DIRECTORY};
        if (!rest.empty() && (entries.empty() || entries.back().name != entry.name)) {
            entries.push_back(entry);
        }
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        const bool numbers = a.name.starts_with("0x") && b.name.starts_with("0x");
        return numbers && a.bare_name().size() != b.bare_name().size()
                   ? a.bare_name().size() < b.bare_name().size()
                   : a.name < b.name;
    });
    return exists ? std::optional(entries) : std::nullopt;
}

cerrno Database::read_item(const std::string &path, std::optional<Item> &item) {
    if (is_pretended(path)) {
        const auto found = pretended_->find(path);
        if (found != pretended_->end()) {
            item = found->second;
        }
        return 0;
    }
    const Place place = place_of(path);
    if (place.conn == 0) {
        return path_fault(path, false);
    }
    uint32_t type = SYSDB_TYPE_ANY;
    void *value = nullptr;
    uint32_t length = 0;
    const cerrno rc = sysdb_item_get(place.conn, place.path, &type, &value, &length, 0);
    if (rc == 0) {
        const std::unique_ptr<void, FreeBlock> owner(value);
        item = Item{type, std::string(static_cast<const char *>(value), length)};
    }
    return rc == SYSDB_ERR_NOT_FOUND ? 0 : rc;
}

std::optional<Item> Database::find(const std::string &path) {
    std::optional<Item> item;
    if (const cerrno rc = read_item(path, item); rc != 0) {
        throw database_failure(path, rc);
    }
    return item;
}

std::optional<Item> Database::find(const std::string &path, std::string &fault) {
    std::optional<Item> item;
    fault = fault_or_failure(path, read_item(path, item));
    return item;
}

Item Database::get(const std::string &path) {
    std::optional<Item> item = find(path);
    if (!item && place_of(path).conn == 0) {
        throw Failure(ExitCode::not_found, escaped(path) + ": there is no system database yet");
    }
    if (!item) {
        throw database_failure(path, SYSDB_ERR_NOT_FOUND);
    }
    return *std::move(item);
}

void Database::set(const std::string &path, const Item &item) {
    const Place place = place_of(path);
    const cerrno rc = sysdb_item_set(place.conn, place.path, item.type, item.bytes.data(),
                                     static_cast<uint32_t>(item.bytes.size()), 0);
    if (rc != 0) {
        throw database_failure(path, rc);
    }
    change_is_stored() = true;
}

// All that the tree lists, as one change.
bool Database::remove_visible() {
    const std::vector<Entry> all = entries(std::string(kTrees[0]));
    std::vector<sysdb_change_t> changes;
    for (const Entry &entry : all) {
        changes.push_back({entry.is_directory() ? SYSDB_CHANGE_PRUNE : SYSDB_CHANGE_DELETE, SYSDB_TYPE_ANY,
                           entry.name.c_str(), nullptr, 0});
    }
    const cerrno rc = sysdb_apply(connection(std::string(kTrees[0])), changes.data(),
                                  static_cast<uint32_t>(changes.size()), nullptr);
    if (rc != 0) {
        throw database_failure(kTrees[0], rc);
    }
    change_is_stored() = change_is_stored() || !all.empty();
    return !all.empty();
}

bool Database::remove(const std::string &path) {
    if (path == kTrees[0] && !shows_hidden_) {
        return remove_visible();
    }
    const Place place = place_of(path);
    const cerrno rc = sysdb_item_delete(place.conn, place.path, path.ends_with('/') ? SYSDB_DELETE_TREE : 0);
    if (rc != 0 && rc != SYSDB_ERR_NOT_FOUND) {
        throw database_failure(path, rc);
    }
    change_is_stored() = change_is_stored() || rc == 0;
    return rc == 0;
}

cerrno Database::read_level(const std::string &directory, std::optional<std::vector<Entry>> &entries) {
    if (directory == "/") {
        entries = {{"cfg/", SYSDB_TYPE_DIRECTORY}, {"oper/", SYSDB_TYPE_DIRECTORY}};
        return 0;
    }
    if (is_pretended(directory)) {
        entries = pretended_level(directory);
        return 0;
    }
    const Place place = place_of(directory);
    if (place.conn == 0) {
        if (*place.path == '\0') {
            entries.emplace();
        }
        return path_fault(directory, true);
    }
    sysdb_list_t list = nullptr;
    const cerrno rc = sysdb_list(place.conn, place.path, "", nullptr, &list, 0);
    if (rc == 0) {
        const std::unique_ptr<void, FreeList> owner(list);
        entries = entries_of(list, directory);
    }
    if (entries && directory == kTrees[0] && !shows_hidden_) {
        std::erase_if(*entries, [](const Entry &entry) { return entry.name == kHiddenEntry; });
    }
    return rc == SYSDB_ERR_NOT_FOUND ? 0 : rc;
}

std::optional<std::vector<Entry>> Database::list(const std::string &directory) {
    std::optional<std::vector<Entry>> entries;
    if (const cerrno rc = read_level(directory, entries); rc != 0) {
        throw database_failure(directory, rc);
    }
    return entries;
}

std::optional<std::vector<Entry>> Database::list(const std::string &directory, std::string &fault) {
    std::optional<std::vector<Entry>> entries;
    fault = fault_or_failure(directory, read_level(directory, entries));
    return entries;
}

std::vector<Entry> Database::entries(const std::string &directory) {
    std::string fault;
    return list(directory, fault).value_or(std::vector<Entry>{});
}

void Database::walk(const std::string &directory,
                    const std::function<void(const std::string &, const Item &)> &visit,
                    const std::function<void(const Unreadable &)> &unreadable) {
    std::string fault;
    const auto entries = unreadable ? list(directory, fault) : list(directory);
    if (!fault.empty()) {
        unreadable({directory, SYSDB_TYPE_DIRECTORY, fault});
    }
    if (!entries) {
        return;  // deleted meanwhile
    }
    const bool is_tree = directory == "/" || directory == kTrees[0] || directory == kTrees[1];
    if (entries->empty() && !is_tree) {
        visit(directory, {SYSDB_TYPE_DIRECTORY, {}});
    }
    for (const Entry &entry : *entries) {
        const std::string path = directory + entry.name;
        if (entry.is_directory()) {
            walk(path, visit, unreadable);
        } else if (const auto item = unreadable ? find(path, fault) : find(path)) {
            visit(path, *item);
        } else if (!fault.empty()) {
            unreadable({path, entry.type, fault});
        }
    }
}

bool is_hidden(std::string_view path) {
    return path.starts_with(kTrees[0]) && path.substr(kTrees[0].size()).starts_with(kHiddenEntry);
}

std::string hidden_fault(const std::string &path) {
    return is_hidden(path.ends_with('/') ? path : path + "/")
               ? "the history of the configuration, which commit, rollback, confirm and cancel write"
               : "";
}

std::string directory_path(const std::string &path, bool root) {
    std::string directory = path.ends_with('/') ? path : path + '/';
    const bool in_tree = directory.starts_with(kTrees[0]) || directory.starts_with(kTrees[1]);
    if (!in_tree && !(root && directory == "/")) {
        throw database_failure(path, SYSDB_ERR_BAD_PATH);
    }
    return directory;
}

}  // namespace aaactl
