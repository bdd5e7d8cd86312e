// SPDX-License-Identifier: Apache-2.0
//
// Reads the files of the configuration.

#include "config/keeper.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace service {

namespace {

void add_faults(const std::string &path, const std::vector<Fault> &faults, std::vector<std::string> &out) {
    for (const Fault &fault : faults) {
        out.push_back(fault_text(path, fault));
    }
}

std::shared_ptr<const Settings> read_settings(const KeeperOptions &options, const Accounts &accounts,
                                              std::vector<std::string> &out) {
    const TextFile file = read_text_file(options.settings_path, Privacy::kShared, 1 << 20);
    std::vector<Fault> faults = file.faults;
    // A mistyped --config must not start the service with other settings than the administrator's.
    if (file.missing && options.settings_path == KeeperOptions{}.settings_path) {
        faults.clear();
    }
    Settings settings = parse_settings(file.text, accounts, faults);
    if (!options.socket.empty()) {
        settings.socket = options.socket;
    }
    add_faults(options.settings_path, faults, out);
    return faults.empty() ? std::make_shared<const Settings>(std::move(settings)) : nullptr;
}

// Without it no account of the host can log in, and only the log says why.
void check_shadow(const Settings &settings, std::vector<std::string> &out) {
    constexpr char shadow[] = "/etc/shadow";
    if (settings.system_accounts && access(shadow, R_OK) != 0) {
        out.push_back(
            std::string("system-accounts: ") + shadow + " cannot be read (" + std::strerror(errno) +
            "), so the method local cannot answer for the accounts of this host; aaad.conf(5) says how "
            "to let the service read it");
    }
}

// Those of the file alone: a name service may be slow, and its users are known when they have logged
// in once.
std::shared_ptr<const Names> read_host_names() {
    auto names = std::make_shared<Names>();
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen("/etc/passwd", "re"), std::fclose);
    passwd entry{};
    passwd *found = nullptr;
    std::vector<char> room(65536);
    while (file != nullptr && fgetpwent_r(file.get(), &entry, room.data(), room.size(), &found) == 0) {
        names->insert(entry.pw_name);
    }
    return names;
}

}  // namespace

FilesRead read_files(const KeeperOptions &options, const Accounts &accounts) {
    FilesRead read;
    read.settings = read_settings(options, accounts, read.faults);
    if (read.settings == nullptr) {
        return read;
    }
    check_shadow(*read.settings, read.warnings);
    read.host_names = read_host_names();
    const std::string &path = read.settings->users;
    const TextFile file = read_text_file(path, Privacy::kSecret);
    std::vector<Fault> faults = file.faults;
    if (faults.empty()) {
        read.users = std::make_shared<const Users>(parse_users(file.text, faults));
    }
    if (!file.missing) {  // a router whose users are all on servers has none
        add_faults(path, faults, read.faults);
    }
    return read;
}

}  // namespace service
