// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: the form and the order of paths, name patterns.

#include <algorithm>
#include <cctype>

#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {
namespace {

// More than the embedded database takes: callers must not cut a path themselves.
constexpr std::size_t kLongestPath = 4095;

bool is_control(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

// Names in byte order, except that a name's leading "0x" number of one to
// eight hex digits counts by its value: 0x2 before 0x10. A slash may follow.
std::string name_key(std::string_view name) {
    if (!name.starts_with("0x")) {
        return std::string(name);
    }
    std::size_t digits = 0;
    while (2 + digits < name.size() && std::isxdigit(static_cast<unsigned char>(name[2 + digits])) != 0) {
        ++digits;
    }
    const std::size_t end = 2 + digits;
    if (digits == 0 || digits > 8 || (end < name.size() && name[end] != ',' && name[end] != '/')) {
        return std::string(name);
    }
    return "0x" + std::string(1, static_cast<char>(digits)) + std::string(name.substr(2));
}

// Takes the first component off a path, with its slash if it has one.
std::string_view take_component(std::string_view &path) {
    const std::size_t slash = path.find('/');
    const std::string_view component = path.substr(0, slash == std::string_view::npos ? slash : slash + 1);
    path.remove_prefix(component.size());
    return component;
}

std::string path_key(std::string_view path) {
    std::string key;
    while (!path.empty()) {
        key += name_key(take_component(path));
    }
    return key;
}

cerrno check(std::string_view components, std::size_t length) {
    while (!components.empty()) {
        const std::string_view component = take_component(components);
        if (component == "/" || std::any_of(component.begin(), component.end(), is_control)) {
            return SYSDB_ERR_BAD_PATH;
        }
    }
    return length <= kLongestPath ? 0 : SYSDB_ERR_PATH_TOO_LONG;
}

}  // namespace

bool PathOrder::operator()(const std::string &a, const std::string &b) const {
    return path_key(a) < path_key(b);
}

cerrno check_bind_path(std::string_view path) {
    if (!path.ends_with('/') || (!path.starts_with("/cfg/") && !path.starts_with("/oper/"))) {
        return SYSDB_ERR_BAD_PATH;
    }
    return check(path.substr(1), path.size());
}

cerrno item_path(const Connection &conn, std::string_view path, std::string &full) {
    if (path.empty() || path.ends_with('/')) {
        return SYSDB_ERR_BAD_PATH;
    }
    full = conn.path + std::string(path);
    return check(path, full.size());
}

cerrno directory_path(const Connection &conn, std::string_view path, std::string &full) {
    full = conn.path + std::string(path);
    if (!full.ends_with('/')) {
        full += '/';
    }
    return check(path, full.size());
}

bool matches(std::string_view pattern, std::string_view name) {
    if (pattern.empty()) {
        return name.empty();
    }
    if (pattern[0] == '*') {
        return matches(pattern.substr(1), name) || (!name.empty() && matches(pattern, name.substr(1)));
    }
    return !name.empty() && (pattern[0] == '?' || pattern[0] == name[0]) &&
           matches(pattern.substr(1), name.substr(1));
}

}  // namespace fake::sysdb
