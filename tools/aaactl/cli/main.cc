// SPDX-License-Identifier: Apache-2.0
//
// The program's entry. Tests and fuzz targets link everything but this file.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "cli/exit_codes.hpp"
#include "cli/program.hpp"

namespace {

// A closed standard descriptor is given to the next file that is opened: aaactl would write its output into
// the database, or read a key from it. So closed ones are taken first. Reading and writing them fails as
// before, with EBADF: lost output still ends with an error, which would not be so on /dev/null.
__attribute__((no_sanitize("address", "thread", "undefined"))) void take_standard_descriptors(int, char **,
                                                                                              char **) {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        const bool closed = fcntl(fd, F_GETFD) < 0 && errno == EBADF;
        if (closed && open("/", O_PATH) != fd) {  // the lowest free number is this one
            _exit(static_cast<int>(aaactl::ExitCode::failed));
        }
    }
}

// Before main(): libraries that aaactl loads open files when they are loaded.
__attribute__((section(".preinit_array"), used)) void (*const g_first)(int, char **,
                                                                       char **) = take_standard_descriptors;

}  // namespace

int main(int argc, char **argv) {
    return aaactl::run(argc, argv);
}
