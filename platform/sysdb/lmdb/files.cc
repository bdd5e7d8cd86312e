// SPDX-License-Identifier: Apache-2.0
//
// Configuration from the environment; directories, modes and descriptors.

#include "files.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "host.hpp"
#include "result.hpp"

namespace sysdb_lmdb {
namespace {

constexpr char kCfgVariable[] = "AAA_SYSDB_CFG_DIR";
constexpr char kRunVariable[] = "AAA_SYSDB_RUN_DIR";
constexpr char kMapVariable[] = "AAA_SYSDB_MAP_MIB";
constexpr char kCfgDefault[] = "/var/lib/aaa/sysdb";
constexpr char kRunDefault[] = "/run/aaa/sysdb";

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;
constexpr std::size_t kDefaultMapMebibytes = 256;
constexpr unsigned long kMaxMapMebibytes = 1024UL * 1024;

std::string directory_from(const char *variable, const char *usual) {
    const char *value = secure_getenv(variable);
    std::string directory = value != nullptr && *value != '\0' ? value : usual;
    while (directory.size() > 1 && directory.ends_with('/')) {
        directory.pop_back();
    }
    return directory;
}

std::size_t map_bytes() {
    const char *value = secure_getenv(kMapVariable);
    if (value == nullptr || *value == '\0') {
        return kDefaultMapMebibytes * kMebibyte;
    }
    char *end = nullptr;
    const unsigned long mebibytes = std::strtoul(value, &end, 10);
    if (*end != '\0' || mebibytes == 0 || mebibytes > kMaxMapMebibytes) {
        log(kLogWarning, "%s=%s is not a number from 1 to %lu; %zu is used", kMapVariable, value,
            kMaxMapMebibytes, kDefaultMapMebibytes);
        return kDefaultMapMebibytes * kMebibyte;
    }
    return mebibytes * kMebibyte;
}

bool is_directory(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Zero or errno.
int make_directories(const std::string &path, mode_t mode) {
    if (is_directory(path)) {
        return 0;
    }
    const std::string parent = parent_of(path);
    if (parent != path) {
        const int error = make_directories(parent, 0755);
        if (error != 0) {
            return error;
        }
    }
    if (mkdir(path.c_str(), mode & 0777) != 0) {
        return errno == EEXIST && is_directory(path) ? 0 : errno;
    }
    // mkdir ignores the set-group-id bit and applies the umask.
    return chmod(path.c_str(), mode) == 0 ? 0 : errno;
}

}  // namespace

Configuration read_configuration() {
    const std::string cfg = directory_from(kCfgVariable, kCfgDefault);
    const std::string run = directory_from(kRunVariable, kRunDefault);
    return {cfg + "/cfg.mdb", run + "/oper.mdb", run + "/w", map_bytes()};
}

cerrno ensure_directory(const std::string &directory) {
    const int error = make_directories(directory, kDirectoryMode);
    if (error == 0) {
        return 0;
    }
    log(kLogError,
        "directory %s cannot be made: %s; make it with mode 2770 and the group of the AAA processes, "
        "or set %s and %s to other places",
        directory.c_str(), std::strerror(error), kCfgVariable, kRunVariable);
    return Result::of_errno(error).code();
}

std::string parent_of(const std::string &file) {
    const auto slash = file.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : file.substr(0, slash);
}

void set_file_mode(const std::string &file, mode_t mode) {
    if (chmod(file.c_str(), mode) != 0) {
        log(kLogWarning, "mode of %s cannot be set: %s; other AAA processes may be refused", file.c_str(),
            std::strerror(errno));
    }
}

void sync_directory(const std::string &directory) {
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    fsync(fd);
    close(fd);
}

bool identify(const std::string &file, FileIdentity &identity) {
    struct stat status;
    if (stat(file.c_str(), &status) != 0) {
        return false;
    }
    identity = {status.st_dev, status.st_ino};
    return true;
}

void close_on_exec(const FileIdentity &identity) {
    DIR *descriptors = opendir("/proc/self/fd");
    if (descriptors == nullptr) {
        return;
    }
    for (const dirent *entry = readdir(descriptors); entry != nullptr; entry = readdir(descriptors)) {
        const int fd = std::atoi(entry->d_name);
        struct stat status;
        if (fd > 0 && fstat(fd, &status) == 0 && FileIdentity{status.st_dev, status.st_ino} == identity) {
            fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
    closedir(descriptors);
}

}  // namespace sysdb_lmdb
