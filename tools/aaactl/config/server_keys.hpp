// SPDX-License-Identifier: Apache-2.0
//
// The key that is shared with a server, as aaad finds it: of the server, else of all servers of its group or
// protocol. A server without a key that opens is not asked.

#pragma once

#include <string>

#include "config/groups.hpp"

namespace aaactl {

enum class KeyState {
    opens,
    missing,
    unusable,     // it is not sealed, or does not open with the master keys
    unprintable,  // it opens, and is not valid: aaad uses it, and other programs may refuse it
    unchecked,    // this user may not read the master keys
    not_needed,   // over TLS
};

struct ServerKey {
    KeyState state = KeyState::missing;
    std::string path;  // of the key; if it is missing, where one for all servers would be
};
// `settings`: the directory of the settings, with its '/'.
ServerKey read_key(Database &database, const std::string &settings, const Server &server,
                   const Protocol &protocol);
ServerKey read_key(Database &database, const Group &group, const Server &server);

// Whether the sealed key can be opened and is not empty; its characters do not matter.
bool opens(const std::string &sealed);

// "/cfg/gl/aaa/group-server/radius/corp/settings/"
std::string settings_path(const Group &group);
std::string settings_path(const Protocol &protocol);

// "opens", "missing", ...: for JSON.
const char *key_word(KeyState state);
// "key", "no key", ...: for people.
const char *key_text(KeyState state);
// Whether aaad asks a server with such a key; a key that cannot be checked is taken for one that opens.
bool is_asked_with(KeyState state);
// Whether aaad asks one of the servers.
bool any_asked(Database &database, const std::string &settings, const Protocol &protocol,
               const std::vector<Server> &servers);

}  // namespace aaactl
