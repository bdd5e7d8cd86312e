// SPDX-License-Identifier: Apache-2.0
//
// The table of settings, and the reader. An unknown word is a fault, with the word that was
// probably meant: a misspelt setting would otherwise have no effect, unnoticed.

#include "config/settings.hpp"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <utility>
#include <vector>

#include "aaa/names.h"
#include "config/suggestion.hpp"

namespace service {

namespace {

using Words = std::span<const std::string_view>;

struct Reader {
    Settings settings;
    const Accounts &accounts;
    std::array<bool, std::size(kAsks)> own_rules{};  // a rule of the file replaces the built-in ones
    std::string fault;                               // of the present line
};

// ---- values

bool read_number(Reader &reader, Words words, std::uint32_t least, std::uint32_t most, std::uint32_t &out) {
    const auto number = decimal(words[1], most);
    if (!number || *number < least) {
        reader.fault = quoted(words[1]) + " is not a number from " + std::to_string(least) + " to " +
                       std::to_string(most);
        return false;
    }
    out = *number;
    return true;
}

bool read_switch(Reader &reader, Words words, bool &out) {
    if (words[1] != "yes" && words[1] != "no") {
        reader.fault = quoted(words[1]) + suggestion(words[1], {"yes", "no"});
        return false;
    }
    out = words[1] == "yes";
    return true;
}

bool read_path(Reader &reader, Words words, std::string &out) {
    if (!words[1].starts_with('/')) {
        reader.fault = quoted(words[1]) + " is not an absolute path";
        return false;
    }
    out = words[1];
    return true;
}

// A path, or the word for none.
bool read_path_or_none(Reader &reader, Words words, std::string &out) {
    if (words[1] == "none") {
        out.clear();
        return true;
    }
    if (!words[1].starts_with('/')) {
        reader.fault = quoted(words[1]) + " is neither an absolute path nor the word none";
        return false;
    }
    out = words[1];
    return true;
}

bool read_when_full(Reader &reader, Words words) {
    if (words[1] != "refuse" && words[1] != "drop-oldest") {
        reader.fault = quoted(words[1]) + suggestion(words[1], {"refuse", "drop-oldest"});
        return false;
    }
    reader.settings.accounting.drop_oldest = words[1] == "drop-oldest";
    return true;
}

bool read_mode(Reader &reader, Words words, std::uint32_t &out) {
    std::uint32_t mode = 0;
    for (const char digit : words[1]) {
        if (digit < '0' || digit > '7' || mode > 0777) {
            mode = 01000;
            break;
        }
        mode = mode * 8 + static_cast<std::uint32_t>(digit - '0');
    }
    if (mode > 0777 || (mode & 0600) != 0600) {
        reader.fault =
            quoted(words[1]) + " is not an octal mode in which the owner may read and write, such as 0660";
        return false;
    }
    out = mode;
    return true;
}

bool read_fallback(Reader &reader, Words words) {
    std::vector<std::uint32_t> methods;
    for (const std::string_view word : words.subspan(1)) {
        if (word == "local") {
            methods.push_back(AAA_METHOD_LOCAL);
        } else if (word == "line") {
            methods.push_back(AAA_METHOD_LINE);
        } else if (word == "enable") {
            methods.push_back(AAA_METHOD_ENABLE);
        } else {
            // "none" is not offered: a damaged database would open the router to everyone.
            reader.fault = quoted(word) + suggestion(word, {"local", "line", "enable"});
            return false;
        }
    }
    reader.settings.fallback = std::move(methods);
    return true;
}

bool read_exempt(Reader &reader, Words words) {
    std::vector<std::string> users;
    bool console = false;
    for (const std::string_view word : words.subspan(1)) {
        if (word == "console") {
            console = true;
        } else if (word.starts_with("user:") && word.size() > 5) {
            users.emplace_back(word.substr(5));
        } else if (word != "none" || words.size() != 2) {
            reader.fault = quoted(word) + "; use none, or console and user:NAME";
            return false;
        }
    }
    reader.settings.lockout.exempt = std::move(users);
    reader.settings.lockout.console_exempt = console;
    return true;
}

// ---- access rules

bool read_who(Reader &reader, std::string_view word, AccessRule &rule) {
    if (word == "any") {
        rule.who = AccessRule::Who::kAny;
        return true;
    }
    const std::string name(word.substr(std::min(word.find(':'), word.size() - 1) + 1));
    if (word.starts_with("user:") && !name.empty()) {
        const auto uid = reader.accounts.user(name);
        rule.who = AccessRule::Who::kUser;
        rule.uid = uid.value_or(0);
        reader.fault = uid ? "" : "there is no user " + quoted(name);
        return uid.has_value();
    }
    if (word.starts_with("group:") && !name.empty()) {
        const auto gid = reader.accounts.group(name);
        rule.who = AccessRule::Who::kGroup;
        rule.gid = gid.value_or(0);
        reader.fault = gid ? "" : "there is no group " + quoted(name);
        return gid.has_value();
    }
    reader.fault = quoted(word) + "; use any, user:NAME or group:NAME";
    return false;
}

bool read_allow(Reader &reader, Words words) {
    const auto ask =
        std::find_if(std::begin(kAsks), std::end(kAsks), [&](Ask one) { return words[1] == ask_word(one); });
    if (ask == std::end(kAsks)) {
        reader.fault = quoted(words[1]) + suggestion(words[1], {"authentication", "authorization",
                                                                "accounting", "configuration"});
        return false;
    }
    AccessRule rule;
    rule.ask = *ask;
    if (words.size() < 3 || words.size() > 4) {
        reader.fault = "use allow REQUEST WHO, or allow REQUEST WHO self";
        return false;
    }
    if (!read_who(reader, words[2], rule)) {
        return false;
    }
    if (words.size() == 4 && words[3] != "self") {
        reader.fault = quoted(words[3]) + suggestion(words[3], {"self"});
        return false;
    }
    rule.self = words.size() == 4;
    if (rule.ask == Ask::kConfiguration && (rule.self || rule.who == AccessRule::Who::kAny)) {
        reader.fault = "configuration is changed for all users: name a user or a group, without self";
        return false;
    }
    bool &own = reader.own_rules[static_cast<std::size_t>(*ask)];
    if (!own) {
        std::erase_if(reader.settings.rules, [&](const AccessRule &each) { return each.ask == *ask; });
        own = true;
    }
    reader.settings.rules.push_back(rule);
    return true;
}

// ---- the table

struct Key {
    std::string_view word;
    std::size_t least_values, most_values;
    bool repeated;
    bool (*read)(Reader &, Words);
};

constexpr std::uint32_t kDay = 86400;
constexpr std::uint32_t kMostMib = 1 << 20;
constexpr std::size_t kMany = 32;

constexpr Key kKeys[] = {
    {"socket", 1, 1, false, [](Reader &r, Words w) { return read_path(r, w, r.settings.socket); }},
    {"socket-mode", 1, 1, false, [](Reader &r, Words w) { return read_mode(r, w, r.settings.socket_mode); }},
    {"control-socket", 1, 1, false,
     [](Reader &r, Words w) {
         r.settings.control_socket = w[1];
         return w[1] == "none" || read_path(r, w, r.settings.control_socket);
     }},
    {"users", 1, 1, false, [](Reader &r, Words w) { return read_path(r, w, r.settings.users); }},
    {"system-accounts", 1, 1, false,
     [](Reader &r, Words w) { return read_switch(r, w, r.settings.system_accounts); }},
    {"allow", 2, 3, true, read_allow},
    {"clients", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, 65536, r.settings.clients_max); }},
    {"clients-per-user", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, 65536, r.settings.clients_per_user); }},
    {"idle-time", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, kDay, r.settings.idle_s); }},
    {"patience", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 100, 3600000, r.settings.patience_ms); }},
    {"longest-request", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 100, 3600000, r.settings.longest_ms); }},
    {"logins-at-once", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 0, 65536, r.settings.logins_at_once); }},
    {"hash-threads", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, 64, r.settings.hash_threads); }},
    {"fallback", 1, 4, false, read_fallback},
    {"force-configuration", 1, 1, false,
     [](Reader &r, Words w) { return read_switch(r, w, r.settings.force_configuration); }},
    {"lockout-failures", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 0, 1000000, r.settings.lockout.failures); }},
    {"lockout-source-failures", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 0, 1000000, r.settings.lockout.source_failures); }},
    {"lockout-window", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, kDay, r.settings.lockout.window_s); }},
    {"lockout-time", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, kDay, r.settings.lockout.time_s); }},
    {"lockout-exempt", 1, kMany, false, read_exempt},
    {"server-timeout", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 10, 60000, r.settings.servers.timeout_ms); }},
    {"server-tries", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, 10, r.settings.servers.tries); }},
    {"server-dead-time", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 0, kDay, r.settings.servers.dead_time_s); }},
    {"journal", 1, 1, false,
     [](Reader &r, Words w) { return read_path_or_none(r, w, r.settings.accounting.journal); }},
    {"journal-limit", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, kMostMib, r.settings.accounting.limit_mib); }},
    {"journal-alarm", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 1, 100, r.settings.accounting.alarm_percent); }},
    {"journal-when-full", 1, 1, false, read_when_full},
    {"interim-interval", 1, 1, false,
     [](Reader &r, Words w) { return read_number(r, w, 0, kDay, r.settings.accounting.interim_s); }},
    {"close-sessions", 1, 1, false,
     [](Reader &r, Words w) { return read_switch(r, w, r.settings.accounting.close_sessions); }},
    {"metrics-socket", 1, 1, false,
     [](Reader &r, Words w) { return read_path_or_none(r, w, r.settings.metrics.socket); }},
    {"metrics-socket-mode", 1, 1, false,
     [](Reader &r, Words w) { return read_mode(r, w, r.settings.metrics.mode); }},
};

std::vector<std::string_view> words_of(std::string_view line) {
    std::vector<std::string_view> words;
    while (!(line = trimmed(line)).empty()) {
        const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
    return words;
}

// False, with a fault, when the line has no effect.
bool read_line(Reader &reader, std::string_view line, std::array<unsigned, std::size(kKeys)> &seen,
               unsigned number) {
    if (control_character(line)) {
        reader.fault = "the line holds a control character";
        return false;
    }
    const auto words = words_of(line.substr(0, line.find('#')));
    if (words.empty()) {
        return true;
    }
    const auto key = std::find_if(std::begin(kKeys), std::end(kKeys),
                                  [&](const Key &each) { return each.word == words[0]; });
    if (key == std::end(kKeys)) {
        std::vector<std::string_view> known;
        std::transform(std::begin(kKeys), std::end(kKeys), std::back_inserter(known),
                       [](const Key &each) { return each.word; });
        reader.fault = quoted(words[0]) + " is not a setting" + suggestion(words[0], known);
        return false;
    }
    unsigned &before = seen[static_cast<std::size_t>(key - std::begin(kKeys))];
    if (before != 0 && !key->repeated) {
        reader.fault = quoted(words[0]) + " is already set on line " + std::to_string(before);
        return false;
    }
    if (words.size() - 1 < key->least_values || words.size() - 1 > key->most_values) {
        reader.fault =
            quoted(words[0]) + " takes " + std::to_string(key->least_values) +
            (key->most_values != key->least_values ? " to " + std::to_string(key->most_values) : "") +
            " word(s), not " + std::to_string(words.size() - 1);
        return false;
    }
    if (!key->read(reader, words)) {
        return false;
    }
    before = number;
    return true;
}

void check_together(const Settings &settings, std::vector<Fault> &faults) {
    if (settings.longest_ms < settings.patience_ms) {
        faults.push_back({0, "longest-request (" + std::to_string(settings.longest_ms) +
                                 ") is less than patience (" + std::to_string(settings.patience_ms) + ")"});
    }
}

}  // namespace

const char *ask_word(Ask ask) {
    switch (ask) {
        case Ask::kAuthentication:
            return "authentication";
        case Ask::kAuthorization:
            return "authorization";
        case Ask::kAccounting:
            return "accounting";
        case Ask::kConfiguration:
            return "configuration";
    }
    return "?";
}

Settings::Settings() : fallback{AAA_METHOD_LOCAL} {
    lockout.exempt = {};
    for (const Ask ask : kAsks) {
        rules.push_back({ask, AccessRule::Who::kUser, 0, 0, false});
    }
    rules.push_back({Ask::kAuthentication, AccessRule::Who::kAny, 0, 0, true});
    rules.push_back({Ask::kAuthorization, AccessRule::Who::kAny, 0, 0, true});
}

Accounts host_accounts() {
    return {[](const std::string &name) -> std::optional<uid_t> {
                const passwd *found = getpwnam(name.c_str());
                return found != nullptr ? std::optional(found->pw_uid) : std::nullopt;
            },
            [](const std::string &name) -> std::optional<gid_t> {
                const group *found = getgrnam(name.c_str());
                return found != nullptr ? std::optional(found->gr_gid) : std::nullopt;
            }};
}

Settings parse_settings(std::string_view text, const Accounts &accounts, std::vector<Fault> &faults) {
    Reader reader{Settings(), accounts, {}, {}};
    std::array<unsigned, std::size(kKeys)> seen{};
    // The group is optional: it exists where the packages are installed.
    if (const auto group = accounts.group("aaa")) {
        for (const Ask ask : {Ask::kAuthentication, Ask::kAuthorization, Ask::kAccounting}) {
            reader.settings.rules.push_back({ask, AccessRule::Who::kGroup, 0, *group, false});
        }
    }
    for_each_line(text, [&](unsigned number, std::string_view line) {
        reader.fault.clear();
        if (!read_line(reader, line, seen, number)) {
            faults.push_back({number, reader.fault});
        }
    });
    check_together(reader.settings, faults);
    return std::move(reader.settings);
}

}  // namespace service
