// SPDX-License-Identifier: Apache-2.0
//
// Reads both maps, plans, and applies the plan if the maps are still as they were.

#include "numbers/group_numbers.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/sysdb_changes.h"

namespace group_numbers {
namespace {

constexpr int kAttempts = 100;  // each time another process has made its change
const char *const kProtocols[] = {"radius", "tacacs", "diameter"};

// Every number of a protocol has three hexadecimal digits.
struct Range {
    std::uint32_t base;
    std::uint32_t last;

    bool holds(std::uint32_t number) const { return number >= base && number <= last; }
};

Range range_of(const std::string &protocol) {
    return protocol == "radius" ? Range{1000, 1999} : Range{3000, 3999};
}

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};
struct FreeList {
    void operator()(void *list) const { sysdb_list_free(list); }
};

// An item as it is stored.
struct Stored {
    cerrno rc = 0;  // not 0: its value cannot be read
    std::uint32_t type = SYSDB_TYPE_ANY;
    std::string bytes;

    std::optional<std::uint32_t> number() const {
        std::uint32_t value = 0;
        if (rc != 0 || type != SYSDB_TYPE_U32 || bytes.size() != sizeof value) {
            return std::nullopt;
        }
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    bool is_text(const std::string &text) const {
        return rc == 0 && type == SYSDB_TYPE_STRING && bytes == text + '\0';
    }
};

Stored number_item(std::uint32_t number) {
    return {0, SYSDB_TYPE_U32, std::string(reinterpret_cast<const char *>(&number), sizeof number)};
}

Stored text_item(const std::string &text) {
    return {0, SYSDB_TYPE_STRING, text + '\0'};
}

using Items = std::map<std::string, Stored>;  // by name

cerrno read_item(sysdb_conn_t maps, const std::string &path, Stored &item) {
    void *value = nullptr;
    std::uint32_t length = 0;
    const cerrno rc = sysdb_item_get(maps, path.c_str(), &item.type, &value, &length, 0);
    const std::unique_ptr<void, FreeBlock> owner(value);
    if (rc == AAA_OK) {
        item.bytes.assign(static_cast<const char *>(value), length);
    }
    return rc;
}

cerrno read_directory(sysdb_conn_t maps, const std::string &directory, Items &items) {
    sysdb_list_t list = nullptr;
    cerrno rc = sysdb_list(maps, directory.c_str(), "", nullptr, &list, 0);
    if (rc != AAA_OK) {
        return rc == SYSDB_ERR_NOT_FOUND ? cerrno{AAA_OK} : rc;
    }
    const std::unique_ptr<void, FreeList> owner(list);
    char *name = nullptr;
    std::uint32_t type = 0;
    sysdb_list_start(list);
    while ((rc = sysdb_list_next(list, &name, &type, 0)) == AAA_OK && name != nullptr) {
        Stored item;
        const cerrno read = type == SYSDB_TYPE_DIRECTORY ? cerrno{SYSDB_ERR_NOT_FOUND}
                                                         : read_item(maps, directory + name, item);
        if (read == SYSDB_ERR_BAD_VALUE) {
            item.rc = read;
        } else if (read == SYSDB_ERR_NOT_FOUND) {
            continue;
        } else if (read != AAA_OK) {
            return read;
        }
        items.emplace(name, std::move(item));
    }
    return rc == SYSDB_ERR_END_OF_LIST ? cerrno{AAA_OK} : rc;
}

std::optional<std::uint32_t> number_in(const std::string &item_name) {
    std::uint32_t number = 0;
    const char *const end = item_name.data() + item_name.size();
    if (!item_name.starts_with("0x")) {
        return std::nullopt;
    }
    const auto [rest, error] = std::from_chars(item_name.data() + 2, end, number, 16);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

std::string item_name_of(std::uint32_t number) {
    char digits[8];
    const auto end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
    return "0x" + std::string(digits, end);
}

// Changes of both maps, in the form of the database.
class Changes {
  public:
    // The item becomes `after`, or is deleted without it, if it is still as it was read. One that cannot be
    // read has no value to expect.
    void replace(const std::string &path, const Stored *before, const Stored *after) {
        if (before == nullptr) {
            add(SYSDB_CHANGE_EXPECT, path, {0, SYSDB_TYPE_ANY, {}});
        } else if (before->rc == 0) {
            add(SYSDB_CHANGE_EXPECT, path, *before);
        }
        if (after != nullptr) {
            add(SYSDB_CHANGE_SET, path, *after);
        } else {
            add(SYSDB_CHANGE_DELETE, path, {});
        }
    }

    cerrno apply(sysdb_conn_t maps) const {
        std::vector<sysdb_change_t> records;
        records.reserve(all_.size());
        for (const Change &change : all_) {
            records.push_back({change.operation, change.item.type, change.path.c_str(),
                               change.item.bytes.data(),
                               static_cast<std::uint32_t>(change.item.bytes.size())});
        }
        const auto count = static_cast<std::uint32_t>(records.size());
        return count == 0 ? cerrno{AAA_OK} : sysdb_apply(maps, records.data(), count, nullptr);
    }

  private:
    struct Change {
        std::uint32_t operation;
        std::string path;
        Stored item;
    };
    void add(std::uint32_t operation, const std::string &path, const Stored &item) {
        all_.push_back({operation, path, item});
    }

    std::vector<Change> all_;
};

// Both maps of one protocol, as they were read and then as they are planned.
class ProtocolMaps {
  public:
    explicit ProtocolMaps(const std::string &protocol) : protocol_(protocol), range_(range_of(protocol)) {}

    cerrno read(sysdb_conn_t maps) {
        const cerrno rc = read_directory(maps, names_path(), names_);
        return rc == AAA_OK ? read_directory(maps, numbers_path(), numbers_) : rc;
    }
    // Who keeps a number that several names have: the one that the number leads to, else the first.
    void find_owners() {
        for (const auto &[name, item] : names_) {
            if (const auto number = usable(item)) {
                const Stored *entry = find(numbers_, item_name_of(*number));
                const bool is_mutual = entry != nullptr && entry->is_text(name);
                if (is_mutual || !owners_.contains(*number)) {
                    owners_[*number] = name;
                }
            }
        }
        last_ = owners_.empty() ? 0 : owners_.rbegin()->first;
        for (const auto &[name, item] : numbers_) {
            const std::uint32_t number = number_in(name).value_or(0);
            last_ = range_.holds(number) ? std::max(last_, number) : last_;
        }
    }
    bool has_name(const std::string &name) const { return names_.contains(name); }

    // A number that no program can use, or that belongs to another group, is replaced.
    Number publish(const std::string &name, bool is_taken, Changes &changes) {
        const Stored *const stored = find(names_, name);
        if (stored == nullptr && is_taken) {
            return {AAA_ERR_SG_NAME_OTHER_PROTOCOL};
        }
        const auto number = stored != nullptr ? usable(*stored) : std::nullopt;
        if (!number || owners_.at(*number) != name) {
            return assign(name, changes);
        }
        lead_to(*number, name, changes);
        return {AAA_OK, *number};
    }

    // Deletes the entries that stood in the way of new groups.
    void delete_stale(Changes &changes) {
        for (const std::string &entry : stale_) {
            changes.replace(numbers_path() + entry, find(numbers_, entry), nullptr);
            numbers_.erase(entry);
        }
        stale_.clear();
    }

    void withdraw(const std::string &name, Changes &changes) {
        if (const Stored *const stored = find(names_, name)) {
            changes.replace(names_path() + name, stored, nullptr);
            names_.erase(name);
        }
        for (auto entry = numbers_.begin(); entry != numbers_.end();) {
            const bool is_own = entry->second.is_text(name);
            if (is_own) {
                changes.replace(numbers_path() + entry->first, &entry->second, nullptr);
            }
            entry = is_own ? numbers_.erase(entry) : std::next(entry);
        }
    }

  private:
    std::string names_path() const { return "sg_name_map/" + protocol_ + "/"; }
    std::string numbers_path() const { return "sg_num_map/" + protocol_ + "/"; }

    static const Stored *find(const Items &items, const std::string &name) {
        const auto found = items.find(name);
        return found != items.end() ? &found->second : nullptr;
    }

    std::optional<std::uint32_t> usable(const Stored &item) const {
        const auto number = item.number();
        return number && range_.holds(*number) ? number : std::nullopt;
    }

    // Entries that lead to no group which has their number.
    void find_stale() {
        stale_.clear();
        for (const auto &[entry, item] : numbers_) {
            const auto number = number_in(entry);
            const auto owner = number ? owners_.find(*number) : owners_.end();
            if (owner == owners_.end() || item_name_of(*number) != entry) {
                stale_.insert(entry);
            }
        }
    }

    // Numbers that deletion has freed are not taken again while a higher one exists: a program may still
    // hold them. At the end of the range, entries without a group count no longer, and then the lowest
    // number that no group has is taken.
    std::optional<std::uint32_t> free_number() {
        if (last_ >= range_.last) {
            find_stale();
            last_ = owners_.empty() ? 0 : owners_.rbegin()->first;
        }
        if (last_ < range_.last) {
            return last_ = std::max(last_, range_.base) + 1;
        }
        std::uint32_t number = range_.base + 1;
        while (owners_.contains(number)) {
            ++number;
        }
        return range_.holds(number) ? std::optional(number) : std::nullopt;
    }

    Number assign(const std::string &name, Changes &changes) {
        const auto number = free_number();
        if (!number) {
            return {AAA_ERR_SG_MAPPING, 0, false, true};
        }
        owners_[*number] = name;
        withdraw_entry_of(name, changes);
        const Stored item = number_item(*number);
        changes.replace(names_path() + name, find(names_, name), &item);
        names_[name] = item;
        lead_to(*number, name, changes);
        return {AAA_OK, *number, true};
    }

    // The entry of a number out of range, which the name has until now.
    void withdraw_entry_of(const std::string &name, Changes &changes) {
        const Stored *const item = find(names_, name);
        const auto number = item != nullptr ? item->number() : std::nullopt;
        const Stored *const entry = number ? find(numbers_, item_name_of(*number)) : nullptr;
        if (entry != nullptr && entry->is_text(name)) {
            changes.replace(numbers_path() + item_name_of(*number), entry, nullptr);
            stale_.erase(item_name_of(*number));
            numbers_.erase(item_name_of(*number));
        }
    }

    void lead_to(std::uint32_t number, const std::string &name, Changes &changes) {
        const std::string entry = item_name_of(number);
        const Stored *const stored = find(numbers_, entry);
        stale_.erase(entry);
        if (stored == nullptr || !stored->is_text(name)) {
            const Stored text = text_item(name);
            changes.replace(numbers_path() + entry, stored, &text);
            numbers_[entry] = text;
        }
    }

    std::string protocol_;
    Range range_;
    Items names_;
    Items numbers_;
    std::map<std::uint32_t, std::string> owners_;  // of numbers in the range
    std::set<std::string> stale_;
    std::uint32_t last_ = 0;
};

class AllMaps {
  public:
    cerrno read(sysdb_conn_t maps) {
        for (const char *protocol : kProtocols) {
            ProtocolMaps &one = by_protocol_.emplace(protocol, ProtocolMaps(protocol)).first->second;
            if (const cerrno rc = one.read(maps); rc != AAA_OK) {
                return rc;
            }
            one.find_owners();
        }
        return AAA_OK;
    }
    ProtocolMaps &of(const Group &group) { return by_protocol_.at(group.protocol); }
    void delete_stale(Changes &changes) {
        for (auto &[protocol, maps] : by_protocol_) {
            maps.delete_stale(changes);
        }
    }
    bool is_taken(const Group &group) const {
        return std::any_of(by_protocol_.begin(), by_protocol_.end(), [&](const auto &other) {
            return other.first != group.protocol && other.second.has_name(group.name);
        });
    }

  private:
    std::map<std::string, ProtocolMaps> by_protocol_;
};

bool all_known(const std::vector<Group> &groups) {
    return std::all_of(groups.begin(), groups.end(), [](const Group &group) {
        return std::find(std::begin(kProtocols), std::end(kProtocols), group.protocol) !=
               std::end(kProtocols);
    });
}

// Plans and applies until no other process comes between.
cerrno change(sysdb_conn_t maps, const std::function<void(AllMaps &, Changes &)> &plan) {
    cerrno rc = SYSDB_ERR_CONFLICT;
    for (int attempt = 0; attempt < kAttempts && rc == SYSDB_ERR_CONFLICT; ++attempt) {
        AllMaps all;
        Changes changes;
        rc = all.read(maps);
        if (rc == AAA_OK) {
            plan(all, changes);
            rc = changes.apply(maps);
        }
        if (rc == SYSDB_ERR_NOT_FOUND) {  // an item that was to be deleted
            rc = SYSDB_ERR_CONFLICT;
        }
    }
    return rc;
}

// For a provider that makes one change at a time.
Number change_alone(sysdb_conn_t maps, const Group &group, std::uint32_t operation) {
    aaa_cfg_event_t event{};
    event.operation = operation;
    Number number;
    number.rc =
        aaa_util_svr_grp_apply(maps, &event, group.protocol.c_str(), group.name.c_str(), &number.number);
    return number;
}

}  // namespace

cerrno publish(sysdb_conn_t maps, const std::vector<Group> &groups, std::vector<Number> &numbers) {
    numbers.clear();
    if (groups.empty() || !all_known(groups)) {
        return groups.empty() ? AAA_OK : AAA_ERR_INVALID_ARG;
    }
    cerrno rc = change(maps, [&](AllMaps &all, Changes &changes) {
        numbers.clear();
        for (const Group &group : groups) {
            numbers.push_back(all.of(group).publish(group.name, all.is_taken(group), changes));
        }
        all.delete_stale(changes);
    });
    if (rc == SYSDB_ERR_NOT_SUPPORTED) {
        for (std::size_t i = 0; i < groups.size(); ++i) {
            const bool is_new = numbers[i].is_new;
            numbers[i] = change_alone(maps, groups[i], AAA_CFG_OP_CREATE);
            numbers[i].is_new = is_new;
        }
        rc = AAA_OK;
    }
    if (rc != AAA_OK) {
        numbers.clear();
    }
    return rc;
}

cerrno withdraw(sysdb_conn_t maps, const std::vector<Group> &groups) {
    if (groups.empty() || !all_known(groups)) {
        return groups.empty() ? AAA_OK : AAA_ERR_INVALID_ARG;
    }
    cerrno rc = change(maps, [&](AllMaps &all, Changes &changes) {
        for (const Group &group : groups) {
            all.of(group).withdraw(group.name, changes);
        }
    });
    for (std::size_t i = 0; rc == SYSDB_ERR_NOT_SUPPORTED && i < groups.size(); ++i) {
        change_alone(maps, groups[i], AAA_CFG_OP_DELETE);
    }
    return rc == SYSDB_ERR_NOT_SUPPORTED ? cerrno{AAA_OK} : rc;
}

}  // namespace group_numbers
