// SPDX-License-Identifier: Apache-2.0
//
// Method lists as they are stored: a tuple at FUNCTION/SERVICE/NAME below
// /cfg/gl/aaa/, of four methods and four names of server groups. Lists for
// accounting have three more integers before these.

#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "config/groups.hpp"
#include "database/list_rules.hpp"

namespace aaactl {

inline constexpr size_t kMaxMethods = 4;
inline constexpr size_t kAccountingIntegers = 3;

struct Method {
    uint32_t number = 0;
    std::string group;              // of a server group
    std::optional<Group> resolved;  // when it exists, configured or published

    bool is_group() const { return number == AAA_METHOD_SERVER_GROUP; }
    const Group *configured() const { return resolved && resolved->configured ? &*resolved : nullptr; }
    std::optional<uint32_t> group_number() const { return resolved ? resolved->number : std::nullopt; }
};

struct MethodList {
    std::string function;  // "authentication", ...
    std::string service;   // word of the path
    std::string name;
    std::vector<int32_t> leading;  // integers before the methods
    std::vector<Method> places;    // all four, as they are stored
    std::string defect;            // "", or why it is not a method list

    std::string path() const;
    // The effective ones: up to the first empty place.
    std::span<const Method> methods() const;
};

// What the method "none" means in a list of logins; "" for other lists.
std::string open_login_text(const MethodList &list);

// Failure(usage), with a suggestion, for a list that no request uses, or with a method that answers none.
void check_is_used(const MethodList &list);

// "/cfg/gl/aaa/authentication/login/default"
std::string list_path(const std::string &function, const std::string &service, const std::string &name);
// Words of the services that have a directory.
std::vector<std::string> service_words(Database &database, const std::string &function);
// Names of the lists of a service; empty when it has none.
std::vector<std::string> list_names(Database &database, const std::string &function,
                                    const std::string &service);

// Its groups are resolved.
std::optional<MethodList> find_list(Database &database, const std::string &function,
                                    const std::string &service, const std::string &name);
// Stores a list. The leading integers of an accounting list are kept.
void write_list(Database &database, const MethodList &list);

}  // namespace aaactl
