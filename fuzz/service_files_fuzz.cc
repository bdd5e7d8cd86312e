// SPDX-License-Identifier: Apache-2.0
//
// The service's own files. The input is a byte that chooses the reader, and the text of the
// file:
//
//   even   aaad.conf
//   odd    the file of local users
//
// Every line either has an effect or is one fault, the faults are in the order of the lines,
// and leaving the faulty lines out changes nothing but the faults. A user that is read is one
// that the file names.

#include <algorithm>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "config/settings.hpp"
#include "config/users.hpp"
#include "fuzz_input.hpp"

namespace {

using namespace service;

const Accounts kAccounts{
    [](const std::string &name) { return name == "root" ? std::optional<uid_t>(0) : std::nullopt; },
    [](const std::string &name) { return name == "aaa" ? std::optional<gid_t>(101) : std::nullopt; }};

// The text with its faulty lines empty, so that the others keep their numbers.
std::string without(const std::string &text, const std::vector<Fault> &faults) {
    std::set<unsigned> faulty;
    for (const Fault &fault : faults) {
        faulty.insert(fault.line);
    }
    std::string rest;
    for_each_line(text, [&](unsigned number, std::string_view line) {
        rest += faulty.contains(number) ? "" : std::string(line);
        rest += '\n';
    });
    return rest;
}

void check_order(const std::vector<Fault> &faults) {
    unsigned last = 0;
    for (const Fault &fault : faults) {
        REQUIRE(!fault.text.empty());
        REQUIRE(fault.line == 0 || fault.line > last);
        last = std::max(last, fault.line);
    }
}

// What of the settings can be compared.
auto key_of(const Settings &s) {
    return std::tuple(s.socket, s.socket_mode, s.users, s.system_accounts, s.rules, s.clients_max,
                      s.clients_per_user, s.idle_s, s.patience_ms, s.longest_ms, s.hash_threads, s.fallback,
                      s.force_configuration, s.lockout.failures, s.lockout.exempt, s.lockout.console_exempt,
                      s.servers.timeout_ms);
}

void read_settings(const std::string &text) {
    std::vector<Fault> faults, left;
    const Settings settings = parse_settings(text, kAccounts, faults);
    check_order(faults);
    const Settings again = parse_settings(without(text, faults), kAccounts, left);
    REQUIRE(std::all_of(left.begin(), left.end(), [](const Fault &fault) { return fault.line == 0; }));
    REQUIRE(key_of(settings) == key_of(again));
    REQUIRE(settings.socket.starts_with('/') && settings.users.starts_with('/'));
    REQUIRE(settings.clients_max >= 1 && settings.patience_ms >= 100);
    for (const AccessRule &rule : settings.rules) {
        REQUIRE(rule.ask != Ask::kConfiguration || (rule.who != AccessRule::Who::kAny && !rule.self));
    }
}

void read_users(const std::string &text) {
    std::vector<Fault> faults, left;
    const Users users = parse_users(text, faults);
    check_order(faults);
    const Users again = parse_users(without(text, faults), left);
    REQUIRE(left.empty());
    REQUIRE(users.users.size() == again.users.size() && users.setting == again.setting);
    for (const auto &[name, user] : users.users) {
        REQUIRE(is_user_name(name) && text.find(name) != std::string::npos);
        REQUIRE(user.privilege <= kHighestPrivilege && !user.hash.empty());
        const LocalUser *other = again.find(name);
        REQUIRE(other != nullptr && other->hash == user.hash && other->commands == user.commands);
        user.may_run("show version");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const bool users = (input.byte() & 1) != 0;
    const std::string text = input.rest();
    if (users) {
        read_users(text);
    } else {
        read_settings(text);
    }
    return 0;
}
