// SPDX-License-Identifier: Apache-2.0
//
// aaad.conf: a setting on each line, words separated by blanks, '#' begins a comment.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/text_file.hpp"

namespace service {

// What a client may ask for, as the access rules name it.
enum class Ask : std::uint8_t { kAuthentication, kAuthorization, kAccounting, kConfiguration };
inline constexpr Ask kAsks[] = {Ask::kAuthentication, Ask::kAuthorization, Ask::kAccounting,
                                Ask::kConfiguration};
const char *ask_word(Ask ask);

// A row of the table of who may ask what.
struct AccessRule {
    enum class Who : std::uint8_t { kUser, kGroup, kAny };

    Ask ask = Ask::kAuthentication;
    Who who = Who::kAny;
    uid_t uid = 0;
    gid_t gid = 0;
    bool self = false;  // only for a request in the name of the client's own user

    friend bool operator==(const AccessRule &, const AccessRule &) = default;
};

struct LockoutSettings {
    std::uint32_t failures = 5;          // of one user from one source; 0 switches the lock-out off
    std::uint32_t source_failures = 50;  // of all users from one source
    std::uint32_t window_s = 300;        // in which they are counted
    std::uint32_t time_s = 300;          // for which logins are refused
    std::vector<std::string> exempt;     // users that are never locked out
    bool console_exempt = true;          // logins without a remote address are not locked out
};

struct ServerSettings {
    std::uint32_t timeout_ms = 2000;  // for one try, where the database says nothing
    std::uint32_t tries = 2;
    std::uint32_t dead_time_s = 60;  // for which a silent server is not asked
};

// Accounting records on disk, on their way to groups of servers.
struct AccountingSettings {
    std::string journal = "/var/lib/aaa/accounting";  // directory; empty: records are sent at once
    std::uint32_t limit_mib = 256;
    std::uint32_t alarm_percent = 80;
    bool drop_oldest = false;     // when the limit is reached; otherwise new records are refused
    std::uint32_t interim_s = 0;  // between interim records of open sessions; 0: none
    bool close_sessions = true;   // a session whose program has gone gets a closing record

    friend bool operator==(const AccountingSettings &, const AccountingSettings &) = default;
};

struct MetricsSettings {
    std::string socket = "/run/aaa/metrics.sock";  // empty: there is none
    std::uint32_t mode = 0660;

    friend bool operator==(const MetricsSettings &, const MetricsSettings &) = default;
};

struct Settings {
    std::string socket = "/run/aaa/aaad.sock";
    std::uint32_t socket_mode = 0666;
    std::string control_socket;  // "none", or empty: "control.sock" next to the socket
    std::string users = "/etc/aaa/users";
    bool system_accounts = false;  // the method "local" knows the host's accounts too
    std::vector<AccessRule> rules;
    std::uint32_t clients_max = 512;
    std::uint32_t clients_per_user = 32;  // except root
    std::uint32_t idle_s = 300;
    std::uint32_t patience_ms = 30000;    // of clients that do not say
    std::uint32_t longest_ms = 120000;    // no request is worked on for longer
    std::uint32_t logins_at_once = 8;     // of one user from one source; 0: no limit
    std::uint32_t hash_threads = 0;       // 0: one for each processor
    std::vector<std::uint32_t> fallback;  // methods (AAA_METHOD_...) while there is no usable configuration
    bool force_configuration = false;
    LockoutSettings lockout;
    ServerSettings servers;
    AccountingSettings accounting;
    MetricsSettings metrics;

    Settings();
    // Where administrators' programs connect; empty: nowhere.
    std::string control_path() const {
        return control_socket == "none"  ? ""
               : !control_socket.empty() ? control_socket
                                         : socket.substr(0, socket.rfind('/') + 1) + "control.sock";
    }
};

// Users and groups by name; functions, so that tests and the fuzzer need no accounts.
struct Accounts {
    std::function<std::optional<uid_t>(const std::string &)> user;
    std::function<std::optional<gid_t>(const std::string &)> group;
};
// The host's.
Accounts host_accounts();

// Reads the text of a file. Faults are appended; the settings are those without the faulty lines.
Settings parse_settings(std::string_view text, const Accounts &accounts, std::vector<Fault> &faults);

}  // namespace service
