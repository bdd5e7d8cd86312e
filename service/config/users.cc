// SPDX-License-Identifier: Apache-2.0

#include "config/users.hpp"

#include <crypt.h>
#include <fnmatch.h>

#include <algorithm>
#include <array>

namespace service {

namespace {

constexpr std::size_t kLongestName = 253;  // the library sends no longer one

struct Row {
    std::string name;
    LocalUser user;
};

std::optional<std::vector<std::string>> patterns_of(std::string_view text) {
    std::vector<std::string> patterns;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(','), text.size());
        if (const auto pattern = trimmed(text.substr(0, end)); !pattern.empty()) {
            patterns.emplace_back(pattern);
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return patterns;
}

// Why libcrypt cannot use a hash; empty when it can.
std::string hash_defect(const std::string &hash) {
    if (hash.empty()) {
        return "the password hash is empty; make one with mkpasswd or openssl passwd -6, or write ! for none";
    }
    if (hash.starts_with('!') || hash.starts_with('*')) {
        return "";
    }
    // A text of another form would be taken for a hash of the oldest kind.
    switch (hash.starts_with('$') ? crypt_checksalt(hash.c_str()) : CRYPT_SALT_INVALID) {
        case CRYPT_SALT_OK:
            return "";
        case CRYPT_SALT_METHOD_LEGACY:
            // libcrypt counts SHA-256 among them only because it is not what it makes itself.
            return hash.starts_with("$5$") ? ""
                                           : "the hash is of a kind that is searched in minutes; make one "
                                             "with mkpasswd or openssl "
                                             "passwd -6";
        default:
            return "the second field is not a password hash; make one with mkpasswd or openssl passwd -6";
    }
}

// A fault, or empty.
std::string read_row(std::string_view line, Row &row) {
    std::array<std::string_view, 3> fields;
    std::string_view rest = line;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::size_t end = rest.find(':');
        if (end == std::string_view::npos && i + 1 < fields.size()) {
            return "use NAME:HASH:PRIVILEGE, or NAME:HASH:PRIVILEGE:COMMANDS";
        }
        fields[i] = trimmed(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    row.name = fields[0];
    row.user.hash = fields[1];
    const auto privilege = decimal(fields[2], kHighestPrivilege);
    if (!privilege) {
        return "the privilege is not a number from 0 to 15";
    }
    row.user.privilege = *privilege;
    if (std::count(line.begin(), line.end(), ':') >= 3) {
        row.user.commands = patterns_of(rest);
    }
    if (!is_user_name(row.name) && row.name != "$enable" && row.name != "$line") {
        return "\"" + row.name.substr(0, 60) + "\" is not a user name, $enable or $line";
    }
    return hash_defect(row.user.hash);
}

// A fault, or empty.
std::string add_row(Users &users, Row row) {
    const std::string hash = row.user.hash;
    const bool locked = row.user.is_locked();
    bool added = false;
    if (row.name == "$line") {
        added = !users.line;
        users.line = users.line ? users.line : std::optional(std::move(row.user));
    } else if (row.name == "$enable") {
        const std::uint32_t privilege = row.user.privilege;
        added = users.enable.emplace(privilege, std::move(row.user)).second;
    } else {
        added = users.users.emplace(row.name, std::move(row.user)).second;
    }
    if (added && !locked && users.setting.empty()) {
        users.setting = hash;
    }
    return added ? ""
                 : "\"" + row.name.substr(0, 60) + "\" is there for the second time; the first one counts";
}

}  // namespace

bool LocalUser::may_run(const std::string &command) const {
    if (!commands) {
        return privilege == kHighestPrivilege;
    }
    return std::any_of(commands->begin(), commands->end(), [&](const std::string &pattern) {
        return fnmatch(pattern.c_str(), command.c_str(), 0) == 0;
    });
}

const LocalUser *Users::find(std::string_view name) const {
    const auto found = users.find(name);
    return found != users.end() ? &found->second : nullptr;
}

bool is_user_name(std::string_view name) {
    const auto is_bad = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= ' ' || byte == 0x7f || c == ':';
    };
    return !name.empty() && name.size() <= kLongestName && name.front() != '$' && name.front() != '#' &&
           std::none_of(name.begin(), name.end(), is_bad);
}

Users parse_users(std::string_view text, std::vector<Fault> &faults) {
    Users users;
    for_each_line(text, [&](unsigned number, std::string_view line) {
        const std::string_view content = trimmed(line);
        if (content.empty() || content.front() == '#') {
            return;
        }
        Row row;
        std::string fault =
            control_character(content) ? "the line holds a control character" : read_row(content, row);
        if (fault.empty()) {
            fault = add_row(users, std::move(row));
        }
        if (!fault.empty()) {
            faults.push_back({number, std::move(fault)});
        }
    });
    return users;
}

}  // namespace service
