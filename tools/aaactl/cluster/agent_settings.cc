// SPDX-License-Identifier: Apache-2.0

#include "cluster/agent_settings.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "cli/output.hpp"
#include "cli/temporary_file.hpp"
#include "database/dump.hpp"

namespace aaactl {
namespace {

constexpr char kUser[] = "aaa-sysdb";
constexpr char kHead[] = "# Settings of aaa-sysdb-agent: see agent.conf(5).\n";

std::string_view key_of(std::string_view line) {
    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos || line[begin] == '#') {
        return {};
    }
    line.remove_prefix(begin);
    return line.substr(0, line.find_first_of(" \t#\r"));
}

std::string_view value_of(std::string_view line) {
    line = line.substr(0, line.find('#'));
    line.remove_prefix(std::min(line.size(), line.find(key_of(line)) + key_of(line).size()));
    const size_t begin = line.find_first_not_of(" \t");
    return begin == std::string_view::npos ? std::string_view()
                                           : line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
}

std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::string lines_for(const Setting &setting) {
    std::string text;
    for (const std::string &value : setting.second) {
        text += setting.first + ' ' + value + '\n';
    }
    return text;
}

std::string with_setting(std::string_view text, const Setting &setting) {
    if (values_of(text, setting.first) == setting.second) {
        return std::string(text);
    }
    std::string result;
    bool placed = false;
    for (const std::string_view line : lines_of(text)) {
        if (key_of(line) != setting.first) {
            result += std::string(line) + '\n';
        } else if (!std::exchange(placed, true)) {
            result += lines_for(setting);
        }
    }
    return placed ? result : result + lines_for(setting);
}

constexpr std::string_view kPlain = "http://";

// By its address: a name may be another machine's, whatever it looks like.
bool is_on_this_machine(const std::string &server) {
    std::string host = server.substr(kPlain.size());
    host = host.substr(0, host.find('/'));
    if (host.starts_with('[')) {
        host = host.substr(1, std::min(host.find(']'), host.size()) - 1);
        in6_addr address{};
        return inet_pton(AF_INET6, host.c_str(), &address) == 1 && IN6_IS_ADDR_LOOPBACK(&address);
    }
    host = host.substr(0, host.find(':'));
    in_addr address{};
    constexpr unsigned kLoopback = 127;
    return host == "localhost" ||
           (inet_pton(AF_INET, host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == kLoopback);
}

Failure failed(const std::string &file) {
    return {ExitCode::failed, escaped(file) + ": " + std::strerror(errno)};
}

std::string directory_of(const std::string &file) {
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

}  // namespace

std::vector<std::string> values_of(std::string_view text, std::string_view key) {
    std::vector<std::string> values;
    for (const std::string_view line : lines_of(text)) {
        if (key_of(line) == key) {
            values.emplace_back(value_of(line));
        }
    }
    return values;
}

std::string with_settings(std::string_view text, const std::vector<Setting> &settings) {
    std::string result(text.empty() ? kHead : text);
    for (const Setting &setting : settings) {
        result = with_setting(result, setting);
    }
    return result;
}

std::vector<std::string> servers_in_clear(const std::vector<std::string> &servers) {
    std::vector<std::string> in_clear;
    std::copy_if(servers.begin(), servers.end(), std::back_inserter(in_clear), [](const std::string &server) {
        return server.starts_with(kPlain) && !is_on_this_machine(server);
    });
    return in_clear;
}

NewSettings::NewSettings(std::string file) : file_(std::move(file)), path_(file_ + ".new") {
    struct stat status {};
    exists_ = lstat(file_.c_str(), &status) == 0;
    if (exists_ && !S_ISREG(status.st_mode)) {
        throw Failure(ExitCode::bad_input, escaped(file_) + ": no regular file; move it away");
    }
    if (exists_) {
        before_ = read_whole_file(file_);
    }
}

NewSettings::~NewSettings() {
    if (written_) {
        unlink(path_.c_str());
    }
}

// What an interrupted command has left is replaced.
void NewSettings::write(const std::string &text) {
    struct stat before {};
    const bool keeps = exists_ && lstat(file_.c_str(), &before) == 0;
    unlink(path_.c_str());
    const int fd =
        open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    written_ = fd >= 0;
    unsigned user = 0;
    unsigned group = 0;
    const bool has_user = find_agents_user(user, group);
    bool done = fd >= 0 && write_all(fd, text);
    if (done && geteuid() == 0) {
        done = keeps ? fchown(fd, before.st_uid, before.st_gid) == 0 : !has_user || fchown(fd, 0, group) == 0;
    }
    done = done && fchmod(fd, keeps ? before.st_mode & 07777 : S_IRUSR | S_IWUSR | S_IRGRP) == 0 &&
           fsync(fd) == 0;
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!done) {
        errno = error;
        throw failed(path_);
    }
}

void NewSettings::put_in_place() {
    if (rename(path_.c_str(), file_.c_str()) != 0) {
        throw failed(file_);
    }
    written_ = false;
    const int directory = open(directory_of(file_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = directory >= 0 && fsync(directory) == 0;
    const int error = errno;
    if (directory >= 0) {
        close(directory);
    }
    if (!synced) {
        errno = error;
        throw failed(directory_of(file_));
    }
}

bool find_agents_user(unsigned &user, unsigned &group) {
    passwd entry{};
    passwd *found = nullptr;
    char buffer[4096];
    if (getpwnam_r(kUser, &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr) {
        return false;
    }
    user = entry.pw_uid;
    group = entry.pw_gid;
    return true;
}

std::string unreadable_for_agent(const std::string &file) {
    unsigned user = 0;
    unsigned group = 0;
    struct stat status {};
    if (file.empty() || !find_agents_user(user, group) || stat(file.c_str(), &status) != 0) {
        return "";
    }
    const mode_t right = status.st_uid == user ? S_IRUSR : status.st_gid == group ? S_IRGRP : S_IROTH;
    const std::string name = escaped(file);
    return (status.st_mode & right) != 0
               ? ""
               : name + ": the agent runs as the user " + kUser + ", who may not read it; run: chgrp " +
                     kUser + " " + name + " && chmod 640 " + name;
}

}  // namespace aaactl
