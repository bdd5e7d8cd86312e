/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Takes the standard descriptors that are closed when the program starts. Otherwise the
 * next file that is opened would get their numbers: the server would print into its
 * database or its socket, and a client would read its password from there. Reading and
 * writing the taken ones fails, as it does with closed ones.
 *
 * A part of each example program that has nothing to call: it runs before main(), and
 * before the libraries are loaded, because they open files when they are.
 */

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

__attribute__((no_sanitize("address", "thread", "undefined"))) static void take_standard_descriptors(
    int argc, char **argv, char **environment) {
    (void)argc;
    (void)argv;
    (void)environment;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) < 0 && errno == EBADF && open("/", O_PATH) != fd) {
            _exit(2); /* no descriptor is to be had; the lowest free number is this one */
        }
    }
}

__attribute__((section(".preinit_array"),
               used)) static void (*const before_all)(int, char **, char **) = take_standard_descriptors;
