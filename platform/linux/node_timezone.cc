// SPDX-License-Identifier: Apache-2.0
//
// The configured time zone's name, as accounting records carry it.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "descriptor.hpp"
#include "platform/node.h"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr char kZoneDirectory[] = "/zoneinfo/";

bool is_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' ||
           c == '_' || c == '-' || c == '+';
}

// Copies text up to its first line feed when it has the form of a zone's name and
// fits with its NUL.
bool take_name(const char *text, char *buffer, uint32_t size) {
    std::size_t n = 0;
    while (is_name_char(text[n])) {
        ++n;
    }
    if (n == 0 || n >= size || (text[n] != '\0' && text[n] != '\n')) {
        return false;
    }
    std::memcpy(buffer, text, n);
    buffer[n] = '\0';
    return true;
}

// The zone's name within a path of the zone database, or the text itself.
const char *zone_of_path(const char *path) {
    const char *found = std::strstr(path, kZoneDirectory);
    return found != nullptr ? found + sizeof kZoneDirectory - 1 : path;
}

bool from_environment(char *buffer, uint32_t size) {
    const char *zone = std::getenv("TZ");
    if (zone == nullptr || *zone == '\0') {
        return false;
    }
    return take_name(zone_of_path(*zone == ':' ? zone + 1 : zone), buffer, size);
}

bool from_file(char *buffer, uint32_t size) {
    char text[128];
    const Descriptor fd(open("/etc/timezone", O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        return false;
    }
    const ssize_t n = read(fd.get(), text, sizeof text - 1);
    if (n <= 0) {
        return false;
    }
    text[n] = '\0';
    return take_name(text, buffer, size);
}

bool from_link(char *buffer, uint32_t size) {
    char path[PATH_MAX];
    const ssize_t n = readlink("/etc/localtime", path, sizeof path - 1);
    if (n <= 0) {
        return false;
    }
    path[n] = '\0';
    const char *zone = zone_of_path(path);
    return zone != path && take_name(zone, buffer, size);
}

// The present abbreviation, for a zone whose name does not fit. A cut name is not
// a zone, and "UTC" would be wrong.
bool from_abbreviation(char *buffer, uint32_t size) {
    const time_t now = time(nullptr);
    tm local{};
    tzset();  // localtime_r() alone keeps to the zone of its first call
    return localtime_r(&now, &local) != nullptr && local.tm_zone != nullptr &&
           take_name(local.tm_zone, buffer, size);
}

// Only TZ counts where it is set, as for the C library.
bool find_name(char *buffer, uint32_t size) {
    const char *zone = std::getenv("TZ");
    const bool found = zone != nullptr && *zone != '\0' ? from_environment(buffer, size)
                                                        : from_file(buffer, size) || from_link(buffer, size);
    return found || from_abbreviation(buffer, size);
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

cerrno conf_get_timezone_string(char *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) {
        return HOST_INVALID_ARG;
    }
    const int saved_errno = errno;
    const bool found = find_name(buffer, size);
    if (!found) {
        buffer[0] = '\0';
    }
    errno = saved_errno;
    return found ? cerrno{0} : cerrno{HOST_NO_TIMEZONE};
}

}  // extern "C"
