// SPDX-License-Identifier: Apache-2.0
//
// Stored items to statements. An item has words only if its statement stores exactly this item again; every
// other item is an "item" statement.

#include <algorithm>
#include <set>

#include "dictionary/enum_words.hpp"
#include "running_config/stored.hpp"

namespace aaactl {
namespace {

std::vector<std::string> components(const std::string &path) {
    std::vector<std::string> parts;
    for (size_t at = sizeof kConfigRoot - 1; at <= path.size();) {
        const size_t slash = std::min(path.find('/', at), path.size());
        parts.push_back(path.substr(at, slash - at));
        at = slash + 1;
    }
    return parts;
}

// Takes items out of the rest, as statements have words for them.
class Describer {
  public:
    explicit Describer(const Items &items) : items_(items), rest_(items) {}

    Statements describe() {
        for (const Owner &owner : group_owners(items_)) {
            if (is_group_name(*owner.group)) {
                describe_group(owner);
            }
        }
        for (uint32_t protocol = 0; protocol < std::size(kProtocols); ++protocol) {
            const Owner owner{protocol, std::nullopt};
            servers(owner);
            settings(owner);
        }
        lists();
        for (const auto &[path, item] : rest_) {
            add(ItemStatement{path, item, false});
        }
        return std::move(statements_);
    }

  private:
    void add(decltype(Statement::what) what) { statements_.push_back({std::move(what), false, 0}); }

    // The line of a group stores an empty list of servers if the group has no server.
    void describe_group(const Owner &owner) {
        const std::string empty = owner.path() + "server/";
        const size_t before = statements_.size();
        add(GroupStatement{owner});
        servers(owner);
        const bool has_server = statements_.size() > before + 1;
        const auto marker = rest_.find(empty);
        const bool is_empty = !any_below(items_, empty) &&
                              !any_below(items_, owner.path() + "server-private/") &&
                              !items_.contains(owner.path() + "server-private/") && marker != rest_.end() &&
                              marker->second == Item{SYSDB_TYPE_DIRECTORY, {}};
        if (!has_server && !is_empty) {
            statements_.pop_back();
            return;
        }
        if (!has_server) {
            rest_.erase(marker);
        }
        settings(owner);
    }

    // The statement that stores this server, without its index and settings; nullopt when none does.
    static std::optional<ServerStatement> words_of(const Owner &owner, const StoredServer &stored,
                                                   const Item &item) {
        ServerStatement server{owner, stored.directory == "server-private/", stored.host(), {}, {}, {}};
        if (!stored.index || !is_address(server.host)) {
            return std::nullopt;
        }
        for (size_t at = stored.entry.find(','); at != std::string::npos;) {
            const size_t end = std::min(stored.entry.find(',', at + 1), stored.entry.size());
            const std::string word = stored.entry.substr(at + 1, end - at - 1);
            const int base = owner.of().is_radius() ? 10 : 16;
            const unsigned long port = std::strtoul(word.c_str(), nullptr, base);
            if (port == 0 || port > 65535) {
                return std::nullopt;
            }
            server.ports.push_back(static_cast<uint32_t>(port));
            at = end == stored.entry.size() ? std::string::npos : end;
        }
        if (server.ports.size() != 2 && owner.of().is_radius()) {
            return std::nullopt;
        }
        if (server.ports.size() > 1 && !owner.of().is_radius()) {
            return std::nullopt;
        }
        const bool is_directory = stored_entry(server).ends_with('/');
        const Item stores = is_directory ? Item{SYSDB_TYPE_DIRECTORY, {}} : number_item(1);
        return server_path(server, *stored.index) == stored.path && item == stores ? std::optional(server)
                                                                                   : std::nullopt;
    }

    // What apply() refuses to add beside another server.
    static std::string identity(const Owner &owner, const StoredServer &stored) {
        return owner.of().is_radius() ? stored.directory + stored.entry : stored.host();
    }

    void servers(const Owner &owner) {
        std::set<std::string> described;
        std::set<std::string> taken;
        for (const std::string &directory : server_directories(owner)) {
            std::vector<StoredServer> all = stored_servers(items_, owner, directory);
            std::stable_sort(all.begin(), all.end(), [](const StoredServer &a, const StoredServer &b) {
                return a.index.value_or(0) < b.index.value_or(0);
            });
            std::map<std::string, size_t> at_index;
            for (const StoredServer &stored : all) {
                ++at_index[stored.index_text];
            }
            uint64_t next = 1;  // the index that apply() gives the next server of this list
            for (const StoredServer &stored : all) {
                auto server = words_of(owner, stored, items_.at(stored.path));
                if (!server || at_index[stored.index_text] > 1 ||
                    !taken.insert(identity(owner, stored)).second) {
                    continue;
                }
                if (*stored.index != next) {
                    server->index = stored.index;
                }
                next = std::max(next, uint64_t{*stored.index} + 1);
                rest_.erase(stored.path);
                if (described.insert(stored.entry).second) {
                    server->settings = values(owner, owner.path() + "settings/" + stored.entry + "/");
                }
                add(*std::move(server));
            }
        }
    }

    // Takes the settings in one directory, in the order of the table.
    std::vector<SettingValue> values(const Owner &owner, const std::string &directory) {
        std::vector<SettingValue> all;
        for (const std::string &word : setting_words()) {
            const Setting &form = *setting_of_word(word);
            const auto item = rest_.find(directory + form.name);
            if (item == rest_.end()) {
                continue;
            }
            if (auto value = setting_value(owner.of(), form, item->second)) {
                all.push_back(*std::move(value));
                rest_.erase(item);
            }
        }
        return all;
    }

    void settings(const Owner &owner) {
        for (SettingValue &value : values(owner, owner.path() + "settings/")) {
            add(SettingStatement{owner, std::move(value)});
        }
    }

    void lists() {
        for (const std::string &function : list_functions()) {
            const std::string above = kConfigRoot + function + "/";
            for (auto at = items_.lower_bound(above); at != items_.end() && at->first.starts_with(above);
                 ++at) {
                if (const auto list = list_of(at->first, at->second)) {
                    add(*list);
                    rest_.erase(at->first);
                }
            }
        }
    }

    static std::optional<ListStatement> list_of(const std::string &path, const Item &item) {
        const std::vector<std::string> parts = components(path);
        if (parts.size() != 3 || item.type != SYSDB_TYPE_TUPLE || !is_group_name(parts[1]) ||
            !is_group_name(parts[2])) {
            return std::nullopt;
        }
        std::vector<TupleField> fields;
        try {
            fields = tuple_fields(item);
        } catch (const Failure &) {
            return std::nullopt;
        }
        ListStatement list{parts[0], parts[1], parts[2], false, {}};
        const size_t leading = list.function == "accounting" ? kAccountingIntegers : 0;
        if (fields.size() != leading + 2 * kMaxMethods) {
            return std::nullopt;
        }
        list.broadcast = leading != 0 && fields[leading - 1].number == 1;
        for (size_t i = 0; i < kMaxMethods; ++i) {
            const auto method = static_cast<uint32_t>(fields[leading + i].number);
            if (method == AAA_METHOD_NOTSET) {
                break;
            }
            list.methods.push_back({method, fields[leading + kMaxMethods + i].name});
        }
        return is_writable(list) && list_item(list) == item ? std::optional(list) : std::nullopt;
    }

    static bool is_writable(const ListStatement &list) {
        return !list.methods.empty() &&
               std::all_of(list.methods.begin(), list.methods.end(), [](const ListStatement::Place &place) {
                   return place.method == AAA_METHOD_SERVER_GROUP
                              ? is_group_name(place.group)
                              : place.method <= AAA_METHOD_SYSLOG && place.group.empty();
               });
    }

    const Items &items_;
    Items rest_;
    Statements statements_;
};

}  // namespace

Statements statements_of(const Items &items) {
    return Describer(items).describe();
}

}  // namespace aaactl
