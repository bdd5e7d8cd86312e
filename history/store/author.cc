// SPDX-License-Identifier: Apache-2.0

#include "store/author.hpp"

#include <pwd.h>
#include <unistd.h>
#include <utmpx.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace history {

namespace {

constexpr std::size_t kLongest = 128;

// From the environment and other files: anything may be in it.
std::string tame(std::string text) {
    std::erase_if(text, [](unsigned char c) { return c < ' ' || c == 0x7f; });
    text.resize(std::min(text.size(), kLongest));
    return text;
}

std::string name_of(uid_t uid) {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd *found = nullptr;
    const bool known = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
    return known ? tame(entry.pw_name) : std::to_string(uid);
}

std::string variable(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? tame(value) : "";
}

// The kernel keeps it over su and sudo. 4294967295 is none.
std::string login_name() {
    std::ifstream in("/proc/self/loginuid");
    std::string text;
    std::getline(in, text);
    std::uint32_t uid = UINT32_MAX;
    std::from_chars(text.data(), text.data() + text.size(), uid);
    return uid != UINT32_MAX ? name_of(uid) : variable("SUDO_USER");
}

// Standard input or output may be redirected.
std::string terminal_name() {
    for (const int fd : {STDIN_FILENO, STDERR_FILENO, STDOUT_FILENO}) {
        char name[128] = "";
        if (ttyname_r(fd, name, sizeof name) == 0) {
            constexpr std::string_view kDevices = "/dev/";
            const std::string_view text(name);
            return tame(std::string(text.starts_with(kDevices) ? text.substr(kDevices.size()) : text));
        }
    }
    return "";
}

// sudo drops the variables of ssh; then the list of logins has the address.
std::string address(const std::string &terminal) {
    for (const char *name : {"SSH_CONNECTION", "SSH_CLIENT"}) {
        const std::string value = variable(name);
        if (!value.empty()) {
            return value.substr(0, value.find(' '));
        }
    }
    std::string host;
    if (!terminal.empty()) {
        utmpx wanted{};
        std::memcpy(wanted.ut_line, terminal.data(), std::min(terminal.size(), sizeof wanted.ut_line));
        setutxent();
        if (const utmpx *entry = getutxline(&wanted)) {
            host.assign(entry->ut_host, strnlen(entry->ut_host, sizeof entry->ut_host));
        }
        endutxent();
    }
    return tame(host);
}

}  // namespace

std::string Author::name() const {
    return login.empty() || login == user ? user : login + " (as " + user + ")";
}

std::string Author::place() const {
    return from + (from.empty() || terminal.empty() ? "" : ", ") + terminal;
}

Author caller() {
    Author author;
    author.uid = getuid();
    author.user = name_of(author.uid);
    author.login = login_name();
    author.terminal = terminal_name();
    author.from = address(author.terminal);
    return author;
}

Author program(const std::string &name) {
    Author author;
    author.uid = getuid();
    author.user = name;
    return author;
}

}  // namespace history
