// SPDX-License-Identifier: Apache-2.0
//
// Several changes of the database as one: collected with absolute paths, applied
// all or not at all.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "database/database.hpp"
#include "platform/sysdb_changes.h"

namespace aaactl {

class Changes {
  public:
    void set(const std::string &path, const Item &item) { add(SYSDB_CHANGE_SET, path, item); }
    void expect(const std::string &path, const Item &item) { add(SYSDB_CHANGE_EXPECT, path, item); }
    void expect_absent(const std::string &path) { add(SYSDB_CHANGE_EXPECT, path, {SYSDB_TYPE_ANY, {}}); }
    // Nothing is in the directory, nor was it made by hand.
    void expect_nothing_in(const std::string &directory) {
        add(SYSDB_CHANGE_EXPECT, directory, {SYSDB_TYPE_ANY, {}});
    }
    void erase(const std::string &path) { add(SYSDB_CHANGE_DELETE, path, {}); }
    void prune(const std::string &directory) { add(SYSDB_CHANGE_PRUNE, directory, {}); }
    // With the operation as sysdb_apply() has it.
    void add(uint32_t operation, const std::string &path, const Item &item) {
        changes_.push_back({operation, path, item});
    }
    bool empty() const { return changes_.empty(); }
    size_t size() const { return changes_.size(); }
    // Of the change with this index; nullopt after the last.
    std::optional<std::string> path(size_t index) const {
        return index < changes_.size() ? std::optional(changes_[index].path) : std::nullopt;
    }

    // Every path is in the directory. On failure `failed` is the index of the refused change, or the number
    // of changes.
    cerrno apply(Database &database, const std::string &directory, size_t &failed) const;

  private:
    struct Change {
        uint32_t operation;
        std::string path;
        Item item;
    };

    std::vector<Change> changes_;
};

}  // namespace aaactl
