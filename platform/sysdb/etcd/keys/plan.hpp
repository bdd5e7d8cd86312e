// SPDX-License-Identifier: Apache-2.0
//
// What changes mean for the cluster: which keys they depend on, and what has to be written, in
// one transaction. Worked out from the mirror; the transaction's comparisons make sure that the
// cluster had the same.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "call/form.hpp"
#include "platform/sysdb_changes.h"

namespace sysdb_etcd {

// An item as the cluster stores it.
struct Stored {
    std::uint64_t mod_revision = 0;
    std::uint32_t datatype = 0;
    std::string value;
};

// What plan_changes() asks the mirror.
struct MirrorView {
    std::uint64_t revision = 0;
    // The item of a path, if there is one. False: the database cannot be read; `failure` says why.
    std::function<bool(const std::string &path, std::optional<Stored> &item)> find;
    // Calls the function with each path below a directory, and its own.
    std::function<void(const std::string &directory, const std::function<void(const std::string &)> &)> below;
    cerrno failure = 0;
};

// Bytes of a cluster's value: the data type in four bytes, little-endian, and the item's value.
std::string cluster_value(std::uint32_t datatype, std::string_view value);
bool parse_cluster_value(std::string_view bytes, std::uint32_t &datatype, std::string_view &value);

struct Plan {
    // The changes are refused: it holds if the comparisons do.
    cerrno refusal = 0;
    std::uint32_t failed = 0;

    // Path to the revision of its last change, 0 for a path without an item.
    std::map<std::string, std::uint64_t> as_expected;
    // Directories below which nothing was changed after the view's revision, or where nothing is.
    std::vector<std::string> unchanged_since;
    std::vector<std::string> empty;
    // Path to the new value, or to none for a deletion.
    std::map<std::string, std::optional<std::string>> writes;
    // Directories whose whole contents are deleted.
    std::vector<std::string> erased;

    bool writes_nothing() const { return writes.empty() && erased.empty(); }
};

// Whether these are changes that can be made: the code for the first one that is not, and its place. A
// provider sends no others, but a client of the agent's socket need not be a provider.
cerrno check_changes(const std::vector<ItemChange> &changes, std::uint32_t &at);

// The changes have been checked. `plan.failed` is the number of changes when none of them was refused.
void plan_changes(const std::vector<ItemChange> &changes, MirrorView &view, Plan &plan);

}  // namespace sysdb_etcd
