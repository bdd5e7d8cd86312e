// SPDX-License-Identifier: Apache-2.0
//
// Dumps of the database: reading the database, printing, comparing.

#include "database/dump.hpp"

#include <algorithm>

#include "database/secret_values.hpp"

namespace aaactl {
namespace {

std::string path_text(const std::string &path) {
    return path.find_first_of(" \"") != std::string::npos ? in_quotes(path) : escaped(path);
}

// ---- differences

using ByPath = std::map<std::string_view, const DumpItem *>;

ByPath items_in(const Dump &dump, const std::string &directory) {
    ByPath items;
    for (const DumpItem &item : dump.items) {
        if (item.path.starts_with(directory)) {
            items[item.path] = &item;
        }
    }
    return items;
}

// An empty directory still exists when it has been filled since.
bool holds(const ByPath &items, const DumpItem &wanted) {
    const auto at = items.lower_bound(wanted.path);
    if (at == items.end()) {
        return false;
    }
    if (wanted.item.type == SYSDB_TYPE_DIRECTORY) {
        return at->first.starts_with(wanted.path);
    }
    const DumpItem &item = *at->second;
    const bool unseen = wanted.masked || item.masked;
    return item.fault.empty() && at->first == wanted.path && item.item.type == wanted.item.type &&
           (unseen || item.item == wanted.item);
}

DumpItem shown(const Output &out, const DumpItem &item) {
    DumpItem copy = item;
    copy.masked = item.masked || (!out.show_secrets() && is_secret(item.path, item.item));
    return copy;
}

}  // namespace

std::string Dump::place(const DumpItem &item) const {
    return is_json ? "items[" + std::to_string(item.line) + "]" : "line " + std::to_string(item.line);
}

bool holds_hidden(const Dump &dump) {
    return std::any_of(dump.items.begin(), dump.items.end(),
                       [](const DumpItem &item) { return is_hidden(item.path); });
}

std::string percent_text(size_t done, size_t all) {
    return std::to_string(all == 0 ? 0 : std::min<size_t>(done * 100 / all, 99)) + " %";
}

Dump read_database(Output &out, Database &database, const std::string &directory, bool secrets,
                   size_t expected) {
    Dump dump;
    dump.directory = directory;
    const auto visit = [&](const std::string &path, const Item &item) {
        const bool masked = !secrets && is_secret(path, item);
        dump.items.push_back({path, masked ? Item{item.type, {}} : item, masked, 0, {}});
        if (dump.items.size() % kDumpProgressStep == 0) {
            out.progress(std::to_string(dump.items.size()) + " items read from the database" +
                         (expected == 0 ? "" : ", " + percent_text(dump.items.size(), expected)));
        }
    };
    database.walk(directory, visit, [&](const Unreadable &item) {
        dump.items.push_back({item.path, {item.type, {}}, false, 0, item.fault});
    });
    return dump;
}

std::string dump_head(const std::string &directory) {
    return std::string(kDumpFormat) + " " + std::string(kDumpVersion) + " " + path_text(directory);
}

std::string dump_line(const DumpItem &item) {
    const std::string value = !item.fault.empty() ? "(" + item.fault + ")"
                              : item.masked       ? std::string(kMask)
                                                  : value_text(item.item);
    return path_text(item.path) + " " + type_name(item.item.type) + (value.empty() ? "" : " ") + value;
}

std::string dump_end(const Dump &dump) {
    const auto items = std::count_if(dump.items.begin(), dump.items.end(),
                                     [](const DumpItem &item) { return item.fault.empty(); });
    return std::string(kDumpEnd) + std::to_string(items) + " items";
}

Json dump_item_json(const DumpItem &item) {
    Json document = {{"path", escaped(item.path)}, {"type", type_name(item.item.type)}};
    if (!item.fault.empty()) {
        document["fault"] = item.fault;
    } else if (item.masked) {
        document["masked"] = true;
    } else if (item.item.type != SYSDB_TYPE_DIRECTORY) {
        document["value"] = value_json(item.item);
    }
    return document;
}

Json dump_json(const Dump &dump) {
    Json document = {{"format", kDumpFormat},
                     {"version", 1},
                     {"directory", escaped(dump.directory)},
                     {"items", Json::array()}};
    for (const DumpItem &item : dump.items) {
        document[item.fault.empty() ? "items" : "faults"].push_back(dump_item_json(item));
    }
    return document;
}

std::vector<Difference> compare(const Dump &dump, const Dump &stored, const std::string &directory) {
    const ByPath wanted = items_in(dump, directory);
    const ByPath found = items_in(stored, directory);
    std::map<std::string_view, Difference> differences;
    for (const auto &[path, item] : wanted) {
        if (!holds(found, *item)) {
            const auto other = found.find(path);
            differences[path] = {item, other == found.end() ? nullptr : other->second};
        }
    }
    for (const auto &[path, item] : found) {
        if (!wanted.contains(path) && !(item->item.type == SYSDB_TYPE_DIRECTORY && holds(wanted, *item))) {
            differences[path] = {nullptr, item};
        }
    }
    std::vector<Difference> result;
    std::transform(differences.begin(), differences.end(), std::back_inserter(result),
                   [](const auto &entry) { return entry.second; });
    return result;
}

Json item_change_json(const Output &out, const ItemChange &change, const char *before_name,
                      const char *after_name) {
    const DumpItem &any = change.before != nullptr ? *change.before : *change.after;
    Json document = {{"path", escaped(any.path)},
                     {"change", change.before == nullptr  ? "added"
                                : change.after == nullptr ? "removed"
                                                          : "changed"}};
    const auto side = [&](const char *name, const DumpItem *item) {
        if (item != nullptr) {
            document[name] = dump_item_json(shown(out, *item));
            document[name].erase("path");
        }
    };
    side(before_name, change.before);
    side(after_name, change.after);
    return document;
}

void print_item_change(Output &out, const ItemChange &change) {
    if (change.before != nullptr) {
        out.line(out.styled(Style::bad, "- " + dump_line(shown(out, *change.before))));
    }
    if (change.after != nullptr) {
        out.line(out.styled(Style::good, "+ " + dump_line(shown(out, *change.after))));
    }
}

}  // namespace aaactl
