// SPDX-License-Identifier: Apache-2.0

#include "main/check.hpp"

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "base/logged_lines.hpp"
#include "config/database.hpp"
#include "groups/server_client.hpp"
#include "platform/cerr.h"
#include "platform/control.h"
#include "records/directory.hpp"

namespace service {

namespace {

constexpr std::uint32_t kWarning = 4;  // of syslog; higher ones are less severe

constinit bool g_checking = false;  // set before there are threads

// What the libraries log meanwhile is a reason of a fault, or a fault that nothing else says.
constinit LoggedLines g_errors;
constinit LoggedLines g_warnings;

std::vector<std::string> texts_in(LoggedLines &lines) {
    std::vector<std::string> texts;
    for (const std::string &line : lines.take()) {
        add_once(texts, logged_text(line));
    }
    return texts;
}

void complain(int &count, const std::string &what) {
    std::printf("%s\n", what.c_str());
    ++count;
}

std::string plural(std::size_t count, const char *what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Files of certificates and the like, which are read when the service starts.
void check_servers(const Snapshot &snapshot, int &count) {
    net::Loop loop;
    for (const auto &group : snapshot.groups) {
        for (const Server &server : group->servers) {
            const ServerClient client(loop, server, 0);
            if (!client.fault().empty()) {
                complain(count, "the server " + client.name() + " cannot be asked: " + client.fault());
            }
        }
    }
}

void check_database(Snapshot &snapshot, int &count) {
    DatabaseConnection config;
    const cerrno rc = config.open("/cfg/gl/aaa/");
    if (rc != 0) {
        std::string fault =
            std::string("/cfg/gl/aaa/: the system database cannot be used: ") + cerr_strerror(rc);
        for (const std::string &reason : texts_in(g_errors)) {
            fault += ": " + reason;
        }
        complain(count, fault);
        return;
    }
    OpenedKeys keys;
    const ReadResult result = read_database(config.get(), 0, keys, snapshot);
    if (result.failure != 0) {
        complain(count, result.failed_path + ": " + cerr_strerror(result.failure));
        return;
    }
    for (const std::string &fault : result.faults) {
        complain(count, fault);
    }
    check_servers(snapshot, count);
    if (const std::string lockout = locks_everybody_out(snapshot); !lockout.empty()) {
        complain(count, "no one could log in: " + lockout);
    }
}

bool take_log_line(std::uint32_t severity, std::string_view line) noexcept {
    if (!g_checking || severity > kWarning) {
        return false;
    }
    (severity < kWarning ? g_errors : g_warnings).keep(line);
    return true;
}

// Nothing here keeps the service from starting, or users from logging in.
void check_journal(const Settings &settings, int &count) {
    const std::string &path = settings.accounting.journal;
    const std::string fault = path.empty() ? "" : accounting::Directory::fault_of(path);
    if (!fault.empty()) {
        complain(count, "journal: " + fault);
    }
}

}  // namespace

// Sanitizers are not ready before main().
__attribute__((no_sanitize("address", "thread", "undefined"))) void expect_check() {
    g_checking = true;
}

int check_configuration(const KeeperOptions &options) {
    int count = 0;
    const FilesRead files = read_files(options, host_accounts());
    for (const std::string &fault : files.faults) {
        complain(count, fault);
    }
    for (const std::string &warning : files.warnings) {
        complain(count, warning);
    }
    if (files.settings != nullptr) {
        check_journal(*files.settings, count);
        Snapshot snapshot;
        snapshot.settings = files.settings;
        snapshot.users = files.users;
        check_database(snapshot, count);
        std::printf("%s, %s, %s\n", plural(snapshot.configured_lists(), "method list").c_str(),
                    plural(snapshot.configured_groups(), "server group").c_str(),
                    plural(files.users != nullptr ? files.users->users.size() : 0, "local user").c_str());
    }
    for (LoggedLines *lines : {&g_errors, &g_warnings}) {
        for (const std::string &text : texts_in(*lines)) {
            complain(count, text);
        }
    }
    if (count != 0) {
        std::printf("%s\n", plural(static_cast<std::size_t>(count), "fault").c_str());
    }
    return count == 0 ? 0 : 1;
}

}  // namespace service

// An administrator who checks the configuration reads faults, not lines of a log.
extern "C" std::int32_t aaa_program_take_log(std::uint32_t severity, const char *line, std::uint32_t length) {
    return service::take_log_line(severity, {line, length}) ? 1 : 0;
}
