// SPDX-License-Identifier: Apache-2.0
//
// What the AAA service reads below /cfg/gl/aaa/: method lists, servers and their settings. The database takes
// any value of any type at any path; a value that the service skips, or a setting with a misspelt name, is
// noticed here, before it is stored.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "database/database.hpp"

namespace aaactl {

// Numbers are u32 (milliseconds and seconds in these units, a flag 0 or 1), all others strings.
enum class SettingForm {
    milliseconds,
    seconds,
    number,
    port,
    flag,
    text,
    file,
    address,
    transport,
    sealed_key
};

struct Setting {
    const char *name;    // below "settings/"
    const char *word;    // in the words of the configuration
    unsigned protocols;  // a bit for each, in the order of schema.cc
    SettingForm form;
    uint32_t least;  // of a number, or bytes of a text
    uint32_t most;

    bool is_number() const { return form <= SettingForm::flag; }
    uint32_t type() const { return is_number() ? SYSDB_TYPE_U32 : SYSDB_TYPE_STRING; }
};
// All settings of servers, in the order of sysdb(5).
std::span<const Setting> settings();
// By its name; null for an unknown one.
const Setting *setting_named(std::string_view name);
// "", or why the service would not use the value as this setting of a server of the protocol ("radius").
std::string value_fault(const Setting &setting, const std::string &protocol, const Item &item);

// "", or why nothing reads such an item at this path. The text names no value of a secret. Paths elsewhere
// than below /cfg/gl/aaa/ have no faults.
std::string schema_fault(const std::string &path, const Item &item);
// Whether the service reads something in the path's tree: "/cfg/gl/aaa/radius/...".
bool is_aaa_tree(const std::string &path);
// As schema_fault() for an item below "settings/" of a group or a protocol; "" for all others.
std::string setting_fault(const std::string &path, const Item &item);

}  // namespace aaactl
