// SPDX-License-Identifier: Apache-2.0
//
// The name of the controlling terminal: from its device number, else from the
// standard descriptors.

#include "own_line.hpp"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "descriptor.hpp"

namespace aaaplatform {

namespace {

constexpr unsigned kFirstPtsMajor = 136;
constexpr unsigned kLastPtsMajor = 143;
constexpr char kDevDirectory[] = "/dev/";

// The number comes in the kernel's wide encoding.
constexpr unsigned major_of(unsigned device) {
    return device >> 8 & 0xfff;
}
constexpr unsigned minor_of(unsigned device) {
    return (device & 0xff) | (device >> 12 & 0xfff00);
}

bool fits(int n, std::size_t size) {
    return n > 0 && static_cast<std::size_t>(n) < size;
}

// The kernel lists other terminals by number, as links whose last component is the
// name.
bool name_from_sysfs(unsigned device, char (&name)[kLineNameSize]) {
    char link[64];
    char target[PATH_MAX];
    std::snprintf(link, sizeof link, "/sys/dev/char/%u:%u", major_of(device), minor_of(device));
    const ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) {
        return false;
    }
    target[n] = '\0';
    const char *slash = std::strrchr(target, '/');
    return fits(std::snprintf(name, sizeof name, "%s", slash != nullptr ? slash + 1 : target), sizeof name);
}

bool name_from_number(int fd, char (&name)[kLineNameSize]) {
    unsigned device = 0;
    if (ioctl(fd, TIOCGDEV, &device) != 0) {
        return false;
    }
    const unsigned major = major_of(device);
    if (major >= kFirstPtsMajor && major <= kLastPtsMajor) {
        const unsigned number = (major - kFirstPtsMajor) << 20 | minor_of(device);
        return fits(std::snprintf(name, sizeof name, "pts/%u", number), sizeof name);
    }
    return name_from_sysfs(device, name);
}

// For a kernel without the number: in a login, a standard descriptor that is a
// terminal is the controlling one.
bool name_from_descriptors(char (&name)[kLineNameSize]) {
    char path[PATH_MAX];
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (ttyname_r(fd, path, sizeof path) == 0 &&
            std::strncmp(path, kDevDirectory, sizeof kDevDirectory - 1) == 0) {
            return fits(std::snprintf(name, sizeof name, "%s", path + sizeof kDevDirectory - 1), sizeof name);
        }
    }
    return false;
}

}  // namespace

OwnLine find_own_line(char (&name)[kLineNameSize]) noexcept {
    name[0] = '\0';
    const Descriptor fd(open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        return OwnLine::kNone;
    }
    const bool named = name_from_number(fd.get(), name) || name_from_descriptors(name);
    if (!named) {
        name[0] = '\0';
    }
    return named ? OwnLine::kFound : OwnLine::kNameless;
}

}  // namespace aaaplatform
