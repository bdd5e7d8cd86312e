// SPDX-License-Identifier: Apache-2.0
//
// A function of the C library that takes precedence over its own in the libraries of this program. It is part
// of the program alone: a test or a fuzzer that links the commands keeps that of the C library.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

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
