// SPDX-License-Identifier: Apache-2.0
//
// Takes the standard descriptors that are closed when a program starts. It is a part of each program, and
// has nothing to call. AAA_PROGRAM_FAILED is the program's exit code where no descriptor is to be had.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

// A closed standard descriptor is given to the next file that is opened: the program would write its output
// into the database, or read a key from it. Reading and writing the taken ones fails as before, with EBADF:
// lost output still ends with an error, which would not be so on /dev/null.
__attribute__((no_sanitize("address", "thread", "undefined"))) void take_standard_descriptors(int, char **,
                                                                                              char **) {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        const bool closed = fcntl(fd, F_GETFD) < 0 && errno == EBADF;
        if (closed && open("/", O_PATH) != fd) {  // the lowest free number is this one
            _exit(AAA_PROGRAM_FAILED);
        }
    }
}

// Before main(), and before the libraries are loaded: they open files then, and one of them has a thread
// that takes these numbers itself for moments. A look from main() would see them as open, or miss one.
__attribute__((section(".preinit_array"), used)) void (*const g_first)(int, char **,
                                                                       char **) = take_standard_descriptors;

}  // namespace
