// SPDX-License-Identifier: Apache-2.0
//
// The keys of the cluster, below the prefix of the configuration, such as "/aaa":
//
//   /aaa/format             which form the rest has; written last by an import
//   /aaa/cfg/...            the items of the configuration, by their paths
//   /aaa/nodes/NODE/state   what the node's agent has got, as JSON
//   /aaa/nodes/NODE/turn/N  the number of the last change that the agent made in its turn N
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "key.hpp"

namespace sysdb_etcd {

inline constexpr char kFormat[] = "1";

class Names {
  public:
    Names(std::string prefix, std::string node) : prefix_(std::move(prefix)), node_(std::move(node)) {}

    const std::string &prefix() const { return prefix_; }
    const std::string &node() const { return node_; }

    std::string all() const { return prefix_ + '/'; }
    std::string format() const { return prefix_ + "/format"; }
    std::string item(std::string_view path) const { return prefix_ + std::string(path); }
    std::string nodes() const { return prefix_ + "/nodes/"; }
    std::string state() const { return prefix_ + "/nodes/" + node_ + "/state"; }
    std::string turn(std::size_t number) const {
        return prefix_ + "/nodes/" + node_ + "/turn/" + std::to_string(number);
    }

    // The path of an item's key: "/cfg/...". Empty for other keys.
    std::string_view path_of(std::string_view key) const {
        key.remove_prefix(key.starts_with(prefix_) ? prefix_.size() : key.size());
        return key.starts_with("/cfg/") && key.size() > 5 ? key : std::string_view();
    }

  private:
    std::string prefix_;
    std::string node_;
};

// The database's key of an item's or a directory's absolute path; nothing for a path that the
// database does not take. "/cfg/" is the tree itself.
inline std::optional<sysdb_lmdb::Key> database_key(std::string_view path) {
    constexpr std::string_view kTree = "/cfg/";
    sysdb_lmdb::Key key;
    if (!path.starts_with(kTree) || key.assign_bind_path(kTree) != 0) {
        return std::nullopt;
    }
    path.remove_prefix(kTree.size());
    const bool directory = path.empty() || path.ends_with('/');
    const cerrno rc = directory ? key.append_directory(path) : key.append_item(path);
    return rc == 0 ? std::optional(key) : std::nullopt;
}

}  // namespace sysdb_etcd
