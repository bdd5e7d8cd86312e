// SPDX-License-Identifier: Apache-2.0
//
// The configuration below /cfg/gl/aaa/ as statements, in the words that people know from network devices:
//
//     aaa group server radius corp
//      server-private 192.0.2.1 auth-port 1812 acct-port 1813 timeout 3s key 7 0100...
//      dead-time 300s
//     radius-server host 192.0.2.9 auth-port 1812 acct-port 1813
//     tacacs-server timeout 2s
//     aaa authentication login default group corp local
//     aaa accounting exec default start-stop broadcast group corp group archive
//     item /cfg/gl/aaa/site/limit u32 15
//
// "no" before a statement deletes what it names; before a setting on a server's line, that setting. Lines
// that begin with '!' or '#' are comments, indentation means nothing. "server", "server-private" and settings
// belong to the last "aaa group server"; "exit", "end" and every other statement leave the group. Keywords
// may be shortened as long as they remain unambiguous.
//
// What these words cannot express is an "item", with the path, type and value of a dump's line. So every
// configuration has a text, and a text gives the same items again:
//
//     items  -- statements_of() -->  statements  -- text_of() -->           text
//     items  <------ apply() ------  statements  <-- parse_statements() --  text

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "config/method_lists.hpp"
#include "database/dump.hpp"
#include "running_config/settings.hpp"

namespace aaactl {

// Of servers and settings: a group, or all servers of a protocol that have none.
struct Owner {
    uint32_t protocol = 0;  // index in kProtocols
    std::optional<std::string> group;

    const Protocol &of() const { return kProtocols[protocol]; }
    // "/cfg/gl/aaa/group-server/radius/corp/" or "/cfg/gl/aaa/radius/"
    std::string path() const;
    bool operator==(const Owner &other) const = default;
};

struct GroupStatement {
    Owner owner;
    bool operator==(const GroupStatement &other) const = default;
};

struct ServerStatement {
    Owner owner;
    bool is_private = false;  // never without a group
    std::string host;
    std::vector<uint32_t> ports;    // none, one, or two of RADIUS
    std::optional<uint32_t> index;  // without it the next free one
    std::vector<SettingValue> settings;

    bool operator==(const ServerStatement &other) const = default;
};

struct SettingStatement {
    Owner owner;
    SettingValue value;  // removed if the statement is
    bool operator==(const SettingStatement &other) const = default;
};

struct ListStatement {
    std::string function;
    std::string service;
    std::string name;
    bool broadcast = false;  // of accounting
    struct Place {
        uint32_t method = 0;
        std::string group;
        bool operator==(const Place &other) const = default;
    };
    std::vector<Place> methods;  // one to four; none if the statement is removed
    bool operator==(const ListStatement &other) const = default;
};

struct ItemStatement {
    std::string path;
    Item item;
    bool masked = false;  // the stored value is kept
    bool operator==(const ItemStatement &other) const = default;
};

struct Statement {
    std::variant<GroupStatement, ServerStatement, SettingStatement, ListStatement, ItemStatement> what;
    bool removed = false;  // "no"
    size_t line = 0;

    // The line does not count.
    bool operator==(const Statement &other) const { return removed == other.removed && what == other.what; }
};
using Statements = std::vector<Statement>;

// ---- text

// Failure(bad_input) names every wrong line, at most 20, what is wrong with it, and what was probably meant.
Statements parse_statements(std::string_view text);
// Whether the last line that is not a comment is "end", as of every configuration that is shown: a text
// without it may have been cut.
inline constexpr std::string_view kEnd = "end";
bool is_whole(std::string_view text);
// One line for each statement, indented below its group. A clear key is in the text.
std::string text_of(const Statements &statements);

// ---- items

// Items by their absolute path; an empty directory is an item whose path ends in '/'.
using Items = std::map<std::string, Item>;

// All items of the directory kConfigRoot, in the order in which apply() takes them.
Statements statements_of(const Items &items);

struct ApplyOptions {
    // Seals a clear key.
    std::function<Item(const Item &clear)> seal;
    // Groups that exist although they are not configured.
    std::function<bool(const std::string &name)> is_published = [](const std::string &) { return false; };
    // Lists may name groups that do not exist.
    bool force = false;
    // Items have to be what the AAA service reads at their paths, unless they are stored already.
    bool checked = false;
    // Where masked items keep their value from.
    const Items *kept = nullptr;
};

struct Applied {
    Items items;                             // after all statements
    std::vector<std::string> removed_trees;  // directories that were deleted with everything below
};

// Makes the changes of all statements in their order. Failure names the line of the statement that is
// refused: bad_input, not_found for "no" of something that does not exist, negative for what the
// configuration does not allow (a list that names no group, a group that a list names).
Applied apply(const Statements &statements, Items items, const ApplyOptions &options);

// "radius HOST,1812,1813", "tacacs HOST" or "HOST,0x1355/": the stored entry of a server.
std::string stored_entry(const ServerStatement &server);

}  // namespace aaactl
