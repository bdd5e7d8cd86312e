// SPDX-License-Identifier: Apache-2.0
//
// The keys of the cluster, below the prefix of the configuration, such as "/aaa":
//
//   /aaa/format             which form the rest has; written last by an import
//   /aaa/cfg/...            the items of the configuration, by their paths
//   /aaa/changed            changed by each change of the configuration that an agent makes: its revision is
//                           that of the last one, also when that has only deleted items. Its value differs
//                           for each change: the node, and the change's number
//   /aaa/import             who imports the configuration, or has imported it, as JSON; with a lease until it
//                           is done
//   /aaa/nodes/NODE/machine the random identity of the machine that has the name
//   /aaa/nodes/NODE/state   what the node's agent has got, as JSON
//   /aaa/nodes/NODE/turn/N  the number of the last change that the agent made in its turn N
//
// Agents watch the keys from /aaa/cfg/ to /aaa/format. What nodes say of themselves comes after them: with a
// thousand nodes, each would otherwise get the lines of all others.
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

    // The keys that agents watch: from the first one to before the end.
    std::string first() const { return prefix_ + "/cfg/"; }
    std::string end() const { return format() + '\0'; }
    std::string changed() const { return prefix_ + "/changed"; }
    std::string format() const { return prefix_ + "/format"; }
    std::string import() const { return prefix_ + "/import"; }
    std::string item(std::string_view path) const { return prefix_ + std::string(path); }
    std::string nodes() const { return prefix_ + "/nodes/"; }
    std::string own() const { return nodes() + node_ + '/'; }
    std::string state() const { return own() + "state"; }
    std::string machine() const { return own() + "machine"; }
    std::string turn(std::size_t number) const { return own() + "turn/" + std::to_string(number); }

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
