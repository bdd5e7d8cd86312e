// SPDX-License-Identifier: Apache-2.0
//
// Remote address of the caller's line: the login record of the line (utmp), else
// the environment set by the secure shell server. The file is not read with
// getutxent(), whose file position belongs to the program.

#include <arpa/inet.h>
#include <fcntl.h>
#include <paths.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "config_file.hpp"
#include "descriptor.hpp"
#include "own_line.hpp"
#include "platform/terminal.h"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr std::size_t kMaxEntries = 65536;  // more lines than a node has

// An IPv4 address mapped into IPv6 is written as IPv4.
bool write_v6(const in6_addr &address, char *buffer, socklen_t size) {
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        return inet_ntop(AF_INET, &address.s6_addr[12], buffer, size) != nullptr;
    }
    return inet_ntop(AF_INET6, &address, buffer, size) != nullptr;
}

// The four words of a login record, in network order. An IPv4 address uses the
// first word only. Four zeros mean that the record has no address.
bool write_words(const int32_t (&words)[4], char *buffer, socklen_t size) {
    in6_addr address;
    static_assert(sizeof words == sizeof address);
    std::memcpy(&address, words, sizeof address);
    if (words[1] != 0 || words[2] != 0 || words[3] != 0) {
        return write_v6(address, buffer, size);
    }
    return words[0] != 0 && inet_ntop(AF_INET, &words[0], buffer, size) != nullptr;
}

// Takes a numeric address, without its IPv6 zone; host names and other texts are
// refused.
bool take_text(const char *text, std::size_t len, char *buffer, socklen_t size) {
    char copy[INET6_ADDRSTRLEN];
    const auto *zone = static_cast<const char *>(std::memchr(text, '%', len));
    const std::size_t n = zone != nullptr ? static_cast<std::size_t>(zone - text) : len;
    if (n == 0 || n >= sizeof copy) {
        return false;
    }
    std::memcpy(copy, text, n);
    copy[n] = '\0';
    in_addr v4;
    in6_addr v6;
    if (inet_pton(AF_INET, copy, &v4) == 1) {
        return inet_ntop(AF_INET, &v4, buffer, size) != nullptr;
    }
    return inet_pton(AF_INET6, copy, &v6) == 1 && write_v6(v6, buffer, size);
}

// An entry may outlive its login; the line may then belong to another user.
bool in_use(const utmp &entry) {
    return entry.ut_pid <= 0 || kill(entry.ut_pid, 0) == 0 || errno != ESRCH;
}

bool is_login_on(const utmp &entry, const char *line) {
    const std::size_t len = strnlen(entry.ut_line, sizeof entry.ut_line);
    return entry.ut_type == USER_PROCESS && std::strlen(line) == len &&
           std::memcmp(entry.ut_line, line, len) == 0 && in_use(entry);
}

bool read_entry(int fd, utmp *entry) {
    ssize_t n;
    do {
        n = read(fd, entry, sizeof *entry);
    } while (n < 0 && errno == EINTR);
    return n == static_cast<ssize_t>(sizeof *entry);
}

// The last entry of the line counts; earlier ones are leftovers.
bool from_utmp(const char *line, char *buffer, socklen_t size) {
    const Descriptor fd(
        open(config_path("AAA_UTMP", _PATH_UTMP), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        return false;
    }
    bool found = false;
    utmp entry;
    for (std::size_t i = 0; i < kMaxEntries && read_entry(fd.get(), &entry); ++i) {
        if (is_login_on(entry, line)) {
            found = write_words(entry.ut_addr_v6, buffer, size) ||
                    take_text(entry.ut_host, strnlen(entry.ut_host, sizeof entry.ut_host), buffer, size);
        }
    }
    return found;
}

// Both variables begin with the client's address and a blank.
bool from_environment(char *buffer, socklen_t size) {
    for (const char *variable : {"SSH_CONNECTION", "SSH_CLIENT"}) {
        const char *value = secure_getenv(variable);
        if (value != nullptr && take_text(value, std::strcspn(value, " "), buffer, size)) {
            return true;
        }
    }
    return false;
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

cerrno aaa_util_find_line_remote_addr(char *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) {
        return LINE_INVALID_ARG;
    }
    const int saved_errno = errno;
    const auto limit = static_cast<socklen_t>(std::min<uint32_t>(size, INET6_ADDRSTRLEN));
    char line[kLineNameSize];
    const bool found = (find_own_line(line) == OwnLine::kFound && from_utmp(line, buffer, limit)) ||
                       from_environment(buffer, limit);
    if (!found) {
        buffer[0] = '\0';
    }
    errno = saved_errno;
    return found ? cerrno{0} : cerrno{LINE_NO_ADDRESS};
}

}  // extern "C"
