// SPDX-License-Identifier: Apache-2.0
//
// The library looks for the installed provider before it binds, and knows no other: with AAA_SYSDB_PROVIDER
// it would find no database although the platform has one. This program names the provider that is used, by
// an access() of its own, which takes precedence over that of the C library. It is part of the program alone:
// a test or a fuzzer that links the commands keeps its access().

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

extern "C" int access(const char *path, int mode) noexcept {
    return faccessat(AT_FDCWD, provider_in_use(path), mode, 0);
}
