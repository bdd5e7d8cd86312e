// SPDX-License-Identifier: Apache-2.0
//
// Names and numbers of file systems.

#include "room.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "descriptor.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

constexpr char kMounts[] = "/proc/self/mountinfo";
constexpr std::size_t kMountLine = 4096;

// "/run (tmpfs)"; empty when the list does not name it, as with subvolumes.
std::string mount_of(dev_t device) {
    Descriptor file = open_at(AT_FDCWD, kMounts, O_RDONLY);
    if (!file) {
        return "";
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> list(fdopen(file.get(), "r"), std::fclose);
    if (list == nullptr) {
        return "";
    }
    file.release();
    // number parent major:minor root place options [fields] - type source options
    const auto line = std::make_unique<char[]>(kMountLine);
    while (std::fgets(line.get(), kMountLine, list.get()) != nullptr) {
        unsigned major_number = 0;
        unsigned minor_number = 0;
        char place[256];
        char type[64];
        const char *separator = std::strstr(line.get(), " - ");
        if (std::sscanf(line.get(), "%*d %*d %u:%u %*s %255s", &major_number, &minor_number, place) == 3 &&
            makedev(major_number, minor_number) == device && separator != nullptr &&
            std::sscanf(separator, " - %63s", type) == 1) {
            return std::string(place) + " (" + type + ")";
        }
    }
    return "";
}

}  // namespace

cerrno report_no_room(int fd, const std::string &file, int error) {
    struct stat status;
    struct statvfs space;
    if (fstat(fd, &status) != 0 || fstatvfs(fd, &space) != 0) {
        log(kLogError, "%s cannot grow: %s; free some space on its file system", file.c_str(),
            std::strerror(error));
        return SYSDB_ERR_FULL;
    }
    const unsigned long long block = space.f_frsize;
    const char *remedy = error == EDQUOT  ? "raise the quota of its owner"
                         : error == EFBIG ? "raise the limit of file sizes (ulimit -f) of this process"
                                          : "free some space there";
    log(kLogError, "%s cannot grow: %s; file system %s has %llu of %llu KiB free; %s", file.c_str(),
        std::strerror(error), mount_of(status.st_dev).c_str(), space.f_bavail * block / 1024,
        space.f_blocks * block / 1024, remedy);
    return SYSDB_ERR_FULL;
}

}  // namespace sysdb_lmdb
