// SPDX-License-Identifier: Apache-2.0

#include "config/server_keys.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "aaa/result_codes.h"
#include "aaa/server_keys.h"
#include "cli/secret_input.hpp"
#include "database/secret_values.hpp"
#include "platform/cipher.h"
#include "platform/control.h"

namespace aaactl {
namespace {

constexpr int kReversible = 7;

std::optional<Item> text_at(Database &database, const std::string &path) {
    std::string fault;
    auto item = database.find(path, fault);
    return item && item->type == SYSDB_TYPE_STRING ? item : std::nullopt;
}

// The server's own setting, else that of all; its path, too.
std::optional<std::string> setting(Database &database, const std::string &settings, const Server &server,
                                   const char *name, std::string &path) {
    for (const std::string &at : {settings + server.entry + "/" + name, settings + name}) {
        path = at;
        if (const auto item = text_at(database, at)) {
            return text_of(*item);
        }
    }
    return std::nullopt;
}

KeyState state_of(std::string key) {
    KeyState state = KeyState::unusable;
    if (looks_sealed(key)) {
        const char *masters = aaa_platform_master_keys_path();
        const bool hidden = access(masters, R_OK) != 0 && errno == EACCES;
        state = hidden                                              ? KeyState::unchecked
                : !opens(key)                                       ? KeyState::unusable
                : validate_encrypted_password(key.data()) != AAA_OK ? KeyState::unprintable
                                                                    : KeyState::opens;
        forget_log_lines();  // the state says it
    }
    wipe(key);
    return state;
}

}  // namespace

bool opens(const std::string &sealed) {
    char *clear = pw_decrypt(sealed.c_str(), kReversible);
    const bool is_key = clear != nullptr && *clear != '\0';
    if (clear != nullptr) {
        explicit_bzero(clear, std::strlen(clear));
        std::free(clear);
    }
    return is_key;
}

ServerKey read_key(Database &database, const std::string &settings, const Server &server,
                   const Protocol &protocol) {
    std::string path;
    const bool over_tls = setting(database, settings, server, "transport", path) == "tls";
    ServerKey key;
    auto stored = setting(database, settings, server, "key", key.path);
    if (stored) {
        key.state = state_of(*std::move(stored));
    } else if (over_tls || protocol.number == AAA_KW_DIAMETER) {
        key.state = KeyState::not_needed;
    }
    return key;
}

ServerKey read_key(Database &database, const Group &group, const Server &server) {
    return read_key(database, settings_path(group), server, group.protocol);
}

std::string settings_path(const Group &group) {
    return group.path + "settings/";
}

std::string settings_path(const Protocol &protocol) {
    return kConfigRoot + std::string(protocol.word) + "/settings/";
}

const char *key_word(KeyState state) {
    switch (state) {
        case KeyState::opens:
            return "opens";
        case KeyState::missing:
            return "missing";
        case KeyState::unusable:
            return "unusable";
        case KeyState::unprintable:
            return "unprintable";
        case KeyState::unchecked:
            return "unchecked";
        case KeyState::not_needed:
            return "not needed";
    }
    return "";
}

const char *key_text(KeyState state) {
    switch (state) {
        case KeyState::opens:
            return "key";
        case KeyState::missing:
            return "no key";
        case KeyState::unusable:
            return "key does not open";
        case KeyState::unprintable:
            return "key not printable";
        case KeyState::unchecked:
            return "key not checked";
        case KeyState::not_needed:
            return "needs no key";
    }
    return "";
}

bool is_asked_with(KeyState state) {
    return state != KeyState::missing && state != KeyState::unusable;
}

bool any_asked(Database &database, const std::string &settings, const Protocol &protocol,
               const std::vector<Server> &servers) {
    return std::any_of(servers.begin(), servers.end(), [&](const Server &server) {
        return is_sound(server) && is_asked_with(read_key(database, settings, server, protocol).state);
    });
}

}  // namespace aaactl
