// SPDX-License-Identifier: Apache-2.0
//
// Two functions of the C library that take precedence over its own in the libraries of this program. They are
// part of the program alone: a test or a fuzzer that links the commands keeps those of the C library.

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "cli/output.hpp"

namespace {

constexpr char kInstalled[] = AAA_PKG_ROOT "/lib/libsysdb.so";

const char *provider_in_use(const char *path) {
    const char *named = std::strcmp(path, kInstalled) == 0 ? secure_getenv("AAA_SYSDB_PROVIDER") : nullptr;
    return named != nullptr && *named != '\0' ? named : path;
}

}  // namespace

// The library looks for the installed provider before it binds, and knows no other: with AAA_SYSDB_PROVIDER
// it would find no database although the platform has one.
extern "C" int access(const char *path, int mode) noexcept {
    return faccessat(AT_FDCWD, provider_in_use(path), mode, 0);
}

// A line in which the platform reports an error on standard error is kept, so that it is a part of the
// message of the command that fails, and not a second message.
extern "C" ssize_t write(int fd, const void *data, size_t size) {
    if (fd == STDERR_FILENO && aaactl::keep_log_line({static_cast<const char *>(data), size})) {
        return static_cast<ssize_t>(size);
    }
    return syscall(SYS_write, fd, data, size);
}
