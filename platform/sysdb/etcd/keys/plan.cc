// SPDX-License-Identifier: Apache-2.0

#include "keys/plan.hpp"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "items.hpp"
#include "keys/names.hpp"

namespace sysdb_etcd {
namespace {

bool names_one_to_keep(const ItemChange &change) {
    return change.operation == SYSDB_CHANGE_SET ||
           (change.operation == SYSDB_CHANGE_EXPECT && change.datatype != SYSDB_TYPE_ANY);
}

class Planner {
  public:
    Planner(const std::vector<ItemChange> &changes, MirrorView &view, Plan &plan) : view_(view), plan_(plan) {
        for (const ItemChange &change : changes) {
            if (names_one_to_keep(change)) {
                keep_.insert(change.path);
            }
        }
    }

    cerrno make(const ItemChange &change) {
        switch (change.operation) {
            case SYSDB_CHANGE_SET:
                return set(change);
            case SYSDB_CHANGE_DELETE:
                return erase(change.path);
            case SYSDB_CHANGE_PRUNE:
                return prune(change.path);
            case SYSDB_CHANGE_EXPECT:
                return expect(change);
            case kDeleteTree:
                return erase_tree(change.path);
            default:
                return SYSDB_ERR_INVALID_ARG;
        }
    }

    // What differs from the mirror at the end.
    void finish() {
        for (const auto &[path, value] : now_) {
            const auto before = before_.find(path);
            const bool differs = before == before_.end() || before->second != value;
            if (differs && !is_erased(path)) {
                plan_.writes.emplace(path, value);
            }
        }
    }

  private:
    using Value = std::optional<std::string>;

    // The present value of a path, after the changes so far.
    cerrno look(const std::string &path, Value &value) {
        if (const auto found = now_.find(path); found != now_.end()) {
            value = found->second;
            return 0;
        }
        if (is_pruned(path)) {
            value.reset();
            return 0;
        }
        std::optional<Stored> item;
        if (!view_.find(path, item)) {
            return view_.failure;
        }
        value = item ? Value(cluster_value(item->datatype, item->value)) : std::nullopt;
        plan_.as_expected[path] = item ? item->mod_revision : 0;
        before_[path] = value;
        now_[path] = value;
        return 0;
    }

    cerrno set(const ItemChange &change) {
        Value value;
        const cerrno rc = look(change.path, value);
        if (rc == 0) {
            now_[change.path] = cluster_value(change.datatype, change.value);
        }
        return rc;
    }

    cerrno erase(const std::string &path) {
        Value value;
        const cerrno rc = look(path, value);
        if (rc != 0 || !value) {
            return rc != 0 ? rc : SYSDB_ERR_NOT_FOUND;
        }
        now_[path].reset();
        return 0;
    }

    cerrno expect(const ItemChange &change) {
        if (change.datatype == SYSDB_TYPE_ANY && change.path.ends_with('/')) {
            return expect_nothing_in(change.path);
        }
        Value value;
        const cerrno rc = look(change.path, value);
        if (rc != 0) {
            return rc;
        }
        const bool met = change.datatype == SYSDB_TYPE_ANY
                             ? !value.has_value()
                             : value == cluster_value(change.datatype, change.value);
        return met ? 0 : SYSDB_ERR_CONFLICT;
    }

    cerrno expect_nothing_in(const std::string &directory) {
        for (auto each = now_.lower_bound(directory);
             each != now_.end() && each->first.starts_with(directory); ++each) {
            if (each->second) {
                return SYSDB_ERR_CONFLICT;
            }
        }
        bool has_any = false;
        std::string first;  // that no change of the call has deleted
        view_.below(directory, [&](const std::string &path) {
            has_any = true;
            if (first.empty() && !is_known(path) && !is_pruned(path)) {
                first = path;
            }
        });
        if (!first.empty()) {
            Value value;
            const cerrno rc = look(first, value);
            return rc != 0 ? rc : SYSDB_ERR_CONFLICT;
        }
        if (!is_below_one(pruned_, directory)) {
            (has_any ? plan_.unchanged_since : plan_.empty).push_back(directory);
        }
        return 0;
    }

    // Where nothing is kept, all is deleted, also what others make meanwhile. Otherwise the
    // items are deleted one by one, and nothing may have been made meanwhile.
    cerrno prune(const std::string &directory) {
        const auto first = keep_.lower_bound(directory);
        const bool keeps = first != keep_.end() && first->starts_with(directory);
        if (keeps) {
            plan_.unchanged_since.push_back(directory);
            cerrno rc = 0;
            view_.below(directory, [&](const std::string &path) {
                Value value;
                if (rc == 0 && !keep_.contains(path)) {
                    rc = is_known(path) ? 0 : note_before(path);
                    now_[path].reset();
                }
            });
            if (rc != 0) {
                return rc;
            }
        } else {
            plan_.erased.push_back(directory);
        }
        for (auto each = now_.lower_bound(directory);
             each != now_.end() && each->first.starts_with(directory); ++each) {
            if (!keep_.contains(each->first)) {
                each->second.reset();
            }
        }
        pruned_.push_back(directory);
        return 0;
    }

    // The whole call consists of this change.
    cerrno erase_tree(const std::string &directory) {
        std::string first;
        view_.below(directory, [&first](const std::string &path) { first = first.empty() ? path : first; });
        if (first.empty()) {
            plan_.empty.push_back(directory);
            return SYSDB_ERR_NOT_FOUND;
        }
        Value value;
        const cerrno rc = look(first, value);
        plan_.erased.push_back(directory);
        return rc;
    }

    bool is_known(const std::string &path) const { return now_.contains(path); }

    // The directory is compared as a whole.
    cerrno note_before(const std::string &path) {
        before_[path] = std::string();  // any value: it is only deleted
        return 0;
    }

    static bool is_below_one(const std::vector<std::string> &directories, const std::string &path) {
        return std::any_of(directories.begin(), directories.end(),
                           [&path](const std::string &each) { return path.starts_with(each); });
    }
    bool is_pruned(const std::string &path) const {
        return !keep_.contains(path) && is_below_one(pruned_, path);
    }
    bool is_erased(const std::string &path) const { return is_below_one(plan_.erased, path); }

    MirrorView &view_;
    Plan &plan_;
    std::set<std::string> keep_;
    std::map<std::string, Value> before_;
    std::map<std::string, Value> now_;
    std::vector<std::string> pruned_;
};

bool path_fits(const ItemChange &change) {
    const bool directory = change.path.ends_with('/');
    if (!database_key(change.path)) {
        return false;
    }
    switch (change.operation) {
        case SYSDB_CHANGE_PRUNE:
        case kDeleteTree:
            return directory;
        case SYSDB_CHANGE_DELETE:
            return change.path != "/cfg/";
        case SYSDB_CHANGE_EXPECT:
            if (directory && change.datatype == SYSDB_TYPE_ANY) {
                return true;  // nothing is in the directory
            }
            [[fallthrough]];
        default:
            return directory == (change.datatype == SYSDB_TYPE_DIRECTORY) && change.path != "/cfg/";
    }
}

}  // namespace

cerrno check_changes(const std::vector<ItemChange> &changes, std::uint32_t &at) {
    for (at = 0; at < changes.size(); ++at) {
        const ItemChange &change = changes[at];
        if (!path_fits(change)) {
            return SYSDB_ERR_BAD_PATH;
        }
        if (change.value.size() > sysdb_lmdb::kMaxValue) {
            return SYSDB_ERR_VALUE_TOO_LARGE;
        }
        // What comes before or after it in the directory would be lost.
        if (change.operation == kDeleteTree && changes.size() != 1) {
            return SYSDB_ERR_INVALID_ARG;
        }
    }
    return 0;
}

std::string cluster_value(std::uint32_t datatype, std::string_view value) {
    std::string bytes;
    bytes.reserve(4 + value.size());
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(datatype >> shift);
    }
    return bytes.append(value);
}

bool parse_cluster_value(std::string_view bytes, std::uint32_t &datatype, std::string_view &value) {
    if (bytes.size() < kLengthSize) {
        return false;
    }
    datatype = unpack_length(bytes.data());
    value = bytes.substr(kLengthSize);
    return true;
}

void plan_changes(const std::vector<ItemChange> &changes, MirrorView &view, Plan &plan) {
    plan = {};
    Planner planner(changes, view, plan);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        plan.refusal = planner.make(changes[i]);
        if (plan.refusal != 0) {
            plan.failed = static_cast<std::uint32_t>(i);
            plan.erased.clear();
            return;
        }
    }
    plan.failed = static_cast<std::uint32_t>(changes.size());
    planner.finish();
}

}  // namespace sysdb_etcd
