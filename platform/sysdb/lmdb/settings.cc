// SPDX-License-Identifier: Apache-2.0
//
// Reading the environment.

#include "settings.hpp"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "descriptor.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

constexpr char kMapVariable[] = "AAA_SYSDB_MAP_MIB";
constexpr char kCfgDefault[] = "/var/lib/aaa/sysdb";
constexpr char kRunDefault[] = "/run/aaa/sysdb";
constexpr char kGroupFile[] = "/etc/group";
constexpr char kGroupOfProcesses[] = "aaa";
constexpr gid_t kGroupOfRoot = 0;
constexpr auto kNoGroup = static_cast<gid_t>(-1);  // of calls that leave the group as it is

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;
constexpr unsigned long kDefaultMapMebibytes = 256;
constexpr unsigned long kMaxMapMebibytes = 1024UL * 1024;
constexpr unsigned long kDefaultWait = 5000;
constexpr unsigned long kMaxWait = 600'000;

std::string directory_from(const char *variable, const char *usual) {
    const char *value = secure_getenv(variable);
    std::string directory = value != nullptr && *value != '\0' ? value : usual;
    while (directory.size() > 1 && directory.ends_with('/')) {
        directory.pop_back();
    }
    return directory;
}

bool parse_number(std::string_view text, unsigned long &number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

unsigned long number_from(const char *variable, unsigned long most, unsigned long usual) {
    const char *value = secure_getenv(variable);
    if (value == nullptr || *value == '\0') {
        return usual;
    }
    unsigned long number = 0;
    if (!parse_number(value, number) || number == 0 || number > most) {
        log(kLogWarning, "%s=%s is not a number from 1 to %lu; %lu is used", variable, value, most, usual);
        return usual;
    }
    return number;
}

std::string contents_of(const char *path) {
    const Descriptor file = open_at(AT_FDCWD, path, O_RDONLY);
    std::string text;
    char buffer[4096];
    for (ssize_t n = 0; file && (n = read(file.get(), buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
}

// From the file and not through the name services, which load objects: this may run on
// a thread that must not enter the dynamic loader.
std::optional<gid_t> group_of_name(std::string_view name) {
    const std::string file = contents_of(kGroupFile);
    std::string_view rest = file;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : rest.size());
        // name:password:number:members
        const auto first = line.find(':');
        const auto second = first == std::string_view::npos ? first : line.find(':', first + 1);
        unsigned long number = 0;
        if (second != std::string_view::npos && line.substr(0, first) == name &&
            parse_number(line.substr(second + 1, line.find(':', second + 1) - second - 1), number)) {
            return static_cast<gid_t>(number);
        }
    }
    return std::nullopt;
}

// The group that the administrator names.
std::optional<gid_t> group_setting() {
    const char *value = secure_getenv(kGroupVariable);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    unsigned long number = 0;
    if (!parse_number(value, number)) {
        return group_of_name(value);
    }
    return number < kNoGroup ? std::optional(static_cast<gid_t>(number)) : std::nullopt;
}

// At the start of each process, and not only of one that makes a directory: the setting is wrong before it
// has an effect.
void check_group_setting() {
    const char *value = secure_getenv(kGroupVariable);
    if (value == nullptr || *value == '\0' || group_setting()) {
        return;
    }
    const bool has_usual = group_of_name(kGroupOfProcesses).has_value();
    log(kLogWarning, "%s=%s is neither a group of %s nor a number below %u; %s is used", kGroupVariable,
        value, kGroupFile, static_cast<unsigned>(kNoGroup),
        has_usual ? "the group aaa, or that of the directory above," : "the group of the directory above");
}

}  // namespace

Settings read_settings() {
    check_group_setting();
    return {directory_from(kCfgVariable, kCfgDefault) + "/cfg.mdb",
            directory_from(kRunVariable, kRunDefault) + "/oper.mdb",
            number_from(kMapVariable, kMaxMapMebibytes, kDefaultMapMebibytes) * kMebibyte,
            static_cast<long>(number_from(kWaitVariable, kMaxWait, kDefaultWait))};
}

gid_t group_of_new_directory(const std::string &path, gid_t above) {
    if (const auto chosen = group_setting()) {
        return *chosen;
    }
    const bool is_usual = path == kCfgDefault || path == kRunDefault;
    return is_usual || above == kGroupOfRoot ? group_of_name(kGroupOfProcesses).value_or(above) : above;
}

bool has_callers_rights_only() {
    return getauxval(AT_SECURE) == 0;
}

std::string parent_of(const std::string &file) {
    const auto slash = file.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : file.substr(0, slash);
}

std::string name_of(const std::string &file) {
    return file.substr(file.rfind('/') + 1);
}

}  // namespace sysdb_lmdb
