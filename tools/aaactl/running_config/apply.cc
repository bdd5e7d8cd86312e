// SPDX-License-Identifier: Apache-2.0
//
// Statements to items: each changes the items that it names, then the result is checked as a whole.

#include <algorithm>
#include <set>

#include "config/method_lists.hpp"
#include "config/references.hpp"
#include "database/schema.hpp"
#include "running_config/stored.hpp"
#include "running_config/wrong_lines.hpp"

namespace aaactl {
namespace {

const Item kDirectory{SYSDB_TYPE_DIRECTORY, {}};

std::string group_text(const Owner &owner) {
    return std::string("server group ") + escaped(owner.group.value_or(""));
}

class Application {
  public:
    Application(Items items, const ApplyOptions &options)
        : applied_{std::move(items), {}}, options_(options), before_(applied_.items) {}

    Applied run(const Statements &statements) {
        for (const Statement &statement : statements) {
            at_line(statement.line, [&] {
                std::visit([&](const auto &what) { make(what, statement.removed, statement.line); },
                           statement.what);
            });
        }
        wrong_.refuse();  // what follows would take the consequences of a wrong line for mistakes
        add_empty_lists();
        check_groups();
        check_lists();
        check_items();
        wrong_.refuse();
        return std::move(applied_);
    }

  private:
    template <typename Do>
    void at_line(size_t line, Do make) {
        try {
            make();
        } catch (const Failure &failure) {
            wrong_.add(failure.code(), line, failure.what());
        }
    }

    Items &items() { return applied_.items; }

    // Directories above that were empty are no longer.
    void set(const std::string &path, const Item &item) {
        for (size_t slash = path.find('/', 1); slash != std::string::npos && slash + 1 < path.size();
             slash = path.find('/', slash + 1)) {
            items().erase(path.substr(0, slash + 1));
        }
        if (!(path.ends_with('/') && any_below(items(), path))) {
            items()[path] = item;
        }
    }

    bool erase_tree(const std::string &directory) {
        const auto begin = items().lower_bound(directory);
        auto end = begin;
        while (end != items().end() && end->first.starts_with(directory)) {
            ++end;
        }
        const bool any = begin != end;
        items().erase(begin, end);
        if (any) {
            applied_.removed_trees.push_back(directory);
        }
        return any;
    }

    // A thing that one text sets twice is a mistake, unless "no" is between.
    void once(const std::string &path, size_t line, const std::string &what) {
        const auto [entry, is_new] = set_on_.emplace(path, line);
        if (!is_new) {
            throw Failure(ExitCode::bad_input, what + " is already on line " + std::to_string(entry->second));
        }
    }
    void forget(const std::string &path) {
        std::erase_if(set_on_, [&](const auto &entry) { return entry.first.starts_with(path); });
    }

    static Failure missing(const std::string &what) {
        return {ExitCode::not_found, what + " does not exist, so \"no\" has nothing to delete"};
    }

    // ---- groups

    void make(const GroupStatement &group, bool removed, size_t line) {
        const std::string path = group.owner.path();
        if (!removed) {
            named_groups_[path] = {group.owner, line};
            return;
        }
        const bool named = named_groups_.erase(path) > 0;
        if (!erase_tree(path) && !named) {
            throw missing(group_text(group.owner));
        }
        forget(path);
        removed_groups_[*group.owner.group] = line;
    }

    // A group without servers keeps an empty list of them.
    void add_empty_lists() {
        for (const auto &[path, group] : named_groups_) {
            const std::string list = path + "server/";
            if (!any_below(items(), list) && !any_below(items(), path + "server-private/") &&
                !items().contains(path + "server-private/")) {
                set(list, kDirectory);
            }
        }
    }

    static bool exists(const Items &items, const Protocol &protocol, const std::string &name) {
        const std::string path = group_path(protocol, name);
        return any_below(items, path) || items.contains(path);
    }
    static bool exists(const Items &items, const std::string &name) {
        return std::any_of(std::begin(kProtocols), std::end(kProtocols),
                           [&](const Protocol &protocol) { return exists(items, protocol, name); });
    }
    bool exists(const std::string &name) { return exists(items(), name); }

    void check_groups() {
        for (const auto &[path, named] : named_groups_) {
            for (const Protocol &protocol : kProtocols) {
                const std::string &name = *named.owner.group;
                if (protocol.number != named.owner.of().number && exists(items(), protocol, name)) {
                    wrong_.add(ExitCode::negative, named.line,
                               group_text(named.owner) + ": the name is that of a group of " + protocol.word +
                                   " already");
                }
            }
        }
    }

    // ---- servers and settings

    void make(const ServerStatement &server, bool removed, size_t line) {
        if (removed) {
            remove_server(server);
            return;
        }
        std::string entry = stored_entry(server);
        const bool is_directory = entry.ends_with('/');
        const std::string bare = is_directory ? entry.substr(0, entry.size() - 1) : entry;
        const std::string place = directory_of(server);
        once(server.owner.path() + place + bare, line, "server " + shown(server));
        add_server(server, bare, place);
        const std::string settings = server.owner.path() + "settings/" + bare + "/";
        for (const SettingValue &value : server.settings) {
            change_setting(settings, value);
        }
    }

    static std::string directory_of(const ServerStatement &server) {
        return !server.owner.group ? "host/" : server.is_private ? "server-private/" : "server/";
    }
    static std::string shown(const ServerStatement &server) {
        std::string text = server.host;
        for (const uint32_t port : server.ports) {
            text += "," + std::to_string(port);
        }
        return text;
    }

    std::vector<StoredServer> all_servers(const Owner &owner) {
        std::vector<StoredServer> all;
        for (const std::string &directory : server_directories(owner)) {
            for (StoredServer &one : stored_servers(items(), owner, directory)) {
                all.push_back(std::move(one));
            }
        }
        return all;
    }

    void add_server(const ServerStatement &server, const std::string &bare, const std::string &place) {
        const std::vector<StoredServer> stored = all_servers(server.owner);
        const StoredServer *same = nullptr;
        const StoredServer *rival = nullptr;
        uint64_t next = 1;
        for (const StoredServer &one : stored) {
            const bool here = one.directory == place;
            if (here && one.entry == bare && (same == nullptr || one.index == server.index)) {
                same = &one;
            } else if (!server.owner.of().is_radius() && one.host() == server.host) {
                rival = &one;
            }
            next = here && one.index ? std::max(next, uint64_t{*one.index} + 1) : next;
        }
        if (same != nullptr && (!server.index || server.index == same->index)) {
            return;
        }
        if (same == nullptr && rival != nullptr) {
            throw Failure(ExitCode::negative, "server " + server.host +
                                                  " is there already with another port or in another list; "
                                                  "delete it first, with \"no\"");
        }
        const uint64_t index = server.index ? *server.index : next;
        if (index > UINT32_MAX) {
            throw Failure(ExitCode::negative,
                          "there is no index after 0xffffffff; give the server another, with \"index\"");
        }
        const std::string path = server_path(server, static_cast<uint32_t>(index));
        const std::string ordinal =
            server.owner.path() + place + index_text(static_cast<uint32_t>(index)) + "/";
        if (any_below(items(), ordinal)) {
            throw Failure(ExitCode::negative,
                          "index " + std::to_string(index) + " is that of another server");
        }
        if (same != nullptr) {
            erase_item(same->path);
        }
        set(path, path.ends_with('/') ? kDirectory : number_item(1));
    }

    void erase_item(const std::string &path) {
        items().erase(path);
        if (path.ends_with('/')) {
            applied_.removed_trees.push_back(path);
        }
    }

    void remove_server(const ServerStatement &server) {
        std::string entry = stored_entry(server);
        if (entry.ends_with('/')) {
            entry.pop_back();
        }
        std::vector<StoredServer> found;
        for (StoredServer &one : stored_servers(items(), server.owner, directory_of(server))) {
            if (server.ports.empty() ? one.host() == server.host : one.entry == entry) {
                found.push_back(std::move(one));
            }
        }
        if (found.empty()) {
            throw missing("server " + shown(server));
        }
        if (found.size() > 1) {
            throw Failure(ExitCode::bad_input, server.host + " is the address of " +
                                                   std::to_string(found.size()) +
                                                   " servers; add the ports of the one that is meant");
        }
        erase_item(found[0].path);
        forget(server.owner.path() + found[0].directory + found[0].entry);
        if (!has_entry(server.owner, found[0].entry)) {
            erase_tree(server.owner.path() + "settings/" + found[0].entry + "/");
        }
        if (server.owner.group && !any_below(items(), server.owner.path() + "server/") &&
            !any_below(items(), server.owner.path() + "server-private/")) {
            set(server.owner.path() + "server/", kDirectory);
        }
    }

    bool has_entry(const Owner &owner, const std::string &entry) {
        const std::vector<StoredServer> all = all_servers(owner);
        return std::any_of(all.begin(), all.end(),
                           [&](const StoredServer &one) { return one.entry == entry; });
    }

    void make(const SettingStatement &setting, bool /*removed: it is in the value*/, size_t line) {
        const std::string directory = setting.owner.path() + "settings/";
        if (!setting.value.removed) {
            once(directory + setting.value.form->name, line, setting.value.form->word);
        } else {
            forget(directory + setting.value.form->name);
        }
        change_setting(directory, setting.value);
    }

    void change_setting(const std::string &directory, const SettingValue &value) {
        const std::string path = directory + value.form->name;
        if (!value.removed) {
            set(path, value.clear ? options_.seal(value.item) : value.item);
        } else if (items().erase(path) == 0) {
            throw missing(std::string("setting ") + value.form->word);
        }
    }

    // ---- lists and items

    void make(const ListStatement &list, bool removed, size_t line) {
        const std::string path = list_path(list.function, list.service, list.name);
        const std::string text = list.function + " list " + escaped(list.service + " " + list.name);
        if (removed) {
            if (items().erase(path) == 0) {
                throw missing(text);
            }
            forget(path);
            named_lists_.erase(path);
            return;
        }
        once(path, line, text);
        set(path, list_item(list));
        named_lists_[path] = {&list, line};
    }

    void make(const ItemStatement &item, bool removed, size_t line) {
        if (removed) {
            const bool any = item.path.ends_with('/') ? erase_tree(item.path) : items().erase(item.path) > 0;
            if (!any) {
                throw missing("item " + escaped(item.path));
            }
            forget(item.path);
            named_items_.erase(item.path);
            return;
        }
        named_items_[item.path] = line;
        once(item.path, line, "item " + escaped(item.path));
        set(item.path, item.masked ? kept_value(item) : item.item);
    }

    const Item &kept_value(const ItemStatement &item) const {
        const auto found = stored().find(item.path);
        if (found == stored().end() || found->second.type != item.item.type) {
            throw Failure(ExitCode::bad_input,
                          escaped(item.path) +
                              ": the value is masked, and no value of its type is stored that "
                              "could be kept; show the configuration with --show-secrets");
        }
        return found->second;
    }

    const Items &stored() const { return options_.kept != nullptr ? *options_.kept : before_; }
    bool is_stored(const std::string &path) {
        const auto found = stored().find(path);
        return found != stored().end() && found->second == items()[path];
    }

    struct NamedGroup {
        Owner owner;
        size_t line;
    };
    struct NamedList {
        const ListStatement *list;
        size_t line;
    };

    // Every list of the text names groups that exist, and no list of the result one that was deleted. A list
    // that is stored as it is may name a group that was missing before: what is shown can be loaded.
    void check_lists() {
        for (const auto &[path, named] : named_lists_) {
            if (!options_.force && !is_stored(path)) {
                check_is_used(named);
            }
            for (const ListStatement::Place &place : named.list->methods) {
                const bool is_group = place.method == AAA_METHOD_SERVER_GROUP;
                if (is_group && !options_.force && !exists(place.group) &&
                    !(options_.is_published(place.group) && !removed_groups_.contains(place.group)) &&
                    !(is_stored(path) && !exists(stored(), place.group))) {
                    wrong_.add(ExitCode::negative, named.line,
                               "group " + escaped(place.group) +
                                   ": no such server group; add \"aaa group server PROTOCOL " +
                                   escaped(place.group) + "\", or use --force");
                }
            }
        }
        for (const auto &[name, line] : removed_groups_) {
            if (!options_.force && !exists(name)) {
                check_unused(name, line);
            }
        }
    }

    // An item is an exact path and value, so it can hold what no other statement could express.
    void check_items() {
        if (!options_.checked || named_items_.empty()) {
            return;
        }
        ConfigPaths config;
        config.is_published = options_.is_published;
        for (const auto &[path, item] : items()) {
            config.paths.insert(path);
        }
        for (const auto &[path, line] : named_items_) {
            const auto found = items().find(path);
            if (found == items().end() || is_stored(path)) {
                continue;
            }
            if (path.find("//") != std::string::npos) {  // which the database refuses with --force too
                const Failure failure = database_failure(path, SYSDB_ERR_BAD_PATH);
                wrong_.add(ExitCode::bad_input, line, failure.what());
                continue;
            }
            const std::string form = schema_fault(path, found->second);
            const std::string fault = form.empty() ? reference_fault(path, found->second, config) : form;
            if (!fault.empty()) {
                wrong_.add(form.empty() ? ExitCode::negative : ExitCode::bad_input, line,
                           escaped(path) + ": " + fault + " (--force loads it all the same)");
            }
        }
    }

    void check_unused(const std::string &name, size_t line) {
        for (const auto &[path, item] : items()) {
            if (item.type != SYSDB_TYPE_TUPLE || !is_list_path(path)) {
                continue;
            }
            const std::vector<TupleField> fields = tuple_fields(item);
            if (std::any_of(fields.begin(), fields.end(),
                            [&](const TupleField &field) { return field.is_name && field.name == name; })) {
                wrong_.add(ExitCode::negative, line,
                           "server group " + escaped(name) + " is named by the method list " + escaped(path) +
                               "; change or delete that list too");
                return;
            }
        }
    }

    static bool is_list_path(const std::string &path) {
        return std::any_of(
            list_functions().begin(), list_functions().end(),
            [&](const std::string &function) { return path.starts_with(kConfigRoot + function + "/"); });
    }

    // As "mlist set": a misspelt service would leave its users without the list.
    void check_is_used(const NamedList &named) {
        MethodList list{named.list->function, named.list->service, named.list->name, {}, {}, {}};
        for (const ListStatement::Place &place : named.list->methods) {
            list.places.push_back({place.method, place.group, std::nullopt});
        }
        try {
            aaactl::check_is_used(list);
        } catch (const Failure &failure) {
            wrong_.add(ExitCode::bad_input, named.line, failure.what());
        }
    }

    Applied applied_;
    WrongLines wrong_;
    const ApplyOptions &options_;
    const Items before_;
    std::map<std::string, size_t> set_on_;  // path to line
    std::map<std::string, NamedGroup> named_groups_;
    std::map<std::string, NamedList> named_lists_;
    std::map<std::string, size_t> named_items_;     // path to line
    std::map<std::string, size_t> removed_groups_;  // name to line
};

}  // namespace

Applied apply(const Statements &statements, Items items, const ApplyOptions &options) {
    return Application(std::move(items), options).run(statements);
}

}  // namespace aaactl
