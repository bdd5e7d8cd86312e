// SPDX-License-Identifier: Apache-2.0
//
// Method lists as they are stored: a tuple at FUNCTION/SERVICE/NAME below
// /cfg/gl/aaa/, of four methods and four names of server groups. Lists for
// accounting have three integers more in front.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "groups.hpp"

namespace aaactl::configured {

inline constexpr char kListConfig[] = "/cfg/gl/aaa/";
inline constexpr size_t kMaxMethods = 4;

struct Method {
    uint32_t number = 0;
    std::string group;              // of a server group
    std::optional<Group> resolved;  // when it exists

    bool is_group() const;
};

struct MethodList {
    std::string function;
    std::string service;
    std::string name;
    std::vector<Method> methods;  // up to the first empty place
    std::string fault;            // why the stored item is no method list, or ""
};

// "/cfg/gl/aaa/authentication/login/default"
std::string method_list_path(const MethodList &list);
// All lists, or those of a function, of its service, of that name, "" standing for all; groups are resolved.
std::vector<MethodList> read_method_lists(Database &database, const std::string &function,
                                          const std::string &service, const std::string &name);
// Stores a list. What an accounting list has in front stays as it is.
void write_method_list(Database &database, const MethodList &list);

}  // namespace aaactl::configured
