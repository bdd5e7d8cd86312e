// SPDX-License-Identifier: Apache-2.0

#include "main/drop_queue.hpp"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "accounting/accounting.hpp"

namespace service {

namespace {

int fail(const std::string &why) {
    std::fprintf(stderr, "aaad: %s\n", why.c_str());
    return 1;
}

// The journal accepts only its owner, who is the user of the service. Root becomes that user, so
// that no file gets another owner.
bool become_owner(const std::string &directory, std::string &error) {
    struct stat status;
    if (lstat(directory.c_str(), &status) != 0) {
        error = directory + ": " + std::strerror(errno);
        return false;
    }
    if (geteuid() != 0 || status.st_uid == 0) {
        return true;
    }
    if (setgroups(0, nullptr) != 0 || setgid(status.st_gid) != 0 || setuid(status.st_uid) != 0) {
        error = "cannot become the user " + std::to_string(status.st_uid) + ", who has " + directory + ": " +
                std::strerror(errno);
        return false;
    }
    return true;
}

std::string known_names(const accounting::Figures &figures) {
    std::string names;
    for (const auto &[name, destination] : figures.destinations) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return names.empty() ? "no records wait for any group" : "the journal has: " + names;
}

}  // namespace

int drop_queue(const KeeperOptions &options, const std::string &group) {
    const FilesRead files = read_files(options, host_accounts());
    if (files.settings == nullptr) {
        return fail(files.faults.empty() ? "the settings cannot be read" : files.faults.front());
    }
    const std::string &directory = files.settings->accounting.journal;
    if (directory.empty()) {
        return fail("the settings name no journal: " + options.settings_path + " says \"journal none\"");
    }
    std::string error;
    if (!become_owner(directory, error)) {
        return fail(error);
    }
    net::Loop loop;
    accounting::Settings settings;
    settings.journal.disk.directory = directory;
    settings.journal.most_bytes = std::uint64_t{files.settings->accounting.limit_mib} << 20;
    accounting::Files calls;
    accounting::Accounting journal(
        loop, settings,
        {[](const std::string &line) { std::fprintf(stderr, "%s\n", line.c_str()); }, nullptr},
        {[](const accounting::Record &) { return true; }, [](const accounting::RecordPointer &) {},
         [](const accounting::RecordPointer &) {}},
        calls);
    if (!journal.open(error)) {
        return fail(error);
    }
    const accounting::Figures figures = journal.figures();
    const auto found = figures.destinations.find(group);
    if (found == figures.destinations.end() || !journal.drop_queue(group)) {
        return fail("no records wait for the group " + group + "; " + known_names(figures));
    }
    std::printf("%llu records for the group %s are given up\n",
                static_cast<unsigned long long>(found->second.waiting), group.c_str());
    return 0;
}

}  // namespace service
