// SPDX-License-Identifier: Apache-2.0
//
// The settings of servers: how each is stored, and the words for its value.
//
//     stored               words
//     u32 in ms            timeout 3s, timeout 1500ms
//     u32 in s             dead-time 300s
//     u32                  tries 3
//     u32 0 or 1           single-connect off
//     string               server-name radius.example.org
//     sealed string        key 7 010001... (key 0 and a clear text: it is sealed when it is loaded)
//
// A value that these words cannot express (another type, out of range) has no words.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "database/protocols.hpp"
#include "database/schema.hpp"
#include "database/sysdb_values.hpp"
#include "running_config/words.hpp"

namespace aaactl {

// By the word; null for an unknown one.
const Setting *setting_of_word(std::string_view word);
// The words of all settings.
const std::vector<std::string> &setting_words();

struct SettingValue {
    const Setting *form = nullptr;
    bool removed = false;  // "no timeout"
    Item item;
    bool clear = false;  // the item is the clear text of a key, which has to be sealed

    bool operator==(const SettingValue &other) const = default;
};

// A stored item as a value; nullopt when it has no words.
std::optional<SettingValue> setting_value(const Protocol &protocol, const Setting &form, const Item &item);
// "timeout 3s", "no timeout"
std::string setting_text(const SettingValue &value);
// The inverse: takes the words of one setting. Failure(bad_input); it quotes no part of a key.
SettingValue read_setting(const Protocol &protocol, WordReader &words);
// The same for "no" and the word of a setting, which has been taken.
SettingValue read_removed_setting(WordReader &words);

}  // namespace aaactl
