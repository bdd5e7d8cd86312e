/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program that a process with an open database starts. Exit status 0 when it inherited
 * the three standard descriptors only.
 */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int main(void) {
    int inherited = 0;
    for (int fd = 3; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) {
            char link[32];
            char target[256] = "";
            snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
            if (readlink(link, target, sizeof target - 1) > 0) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
                /* The sanitizers' runtime makes a pipe to find out whether memory can be read. */
                if (strncmp(target, "pipe:", 5) == 0) {
                    continue;
                }
#endif
                fprintf(stderr, "inherited: %s\n", target);
            }
            inherited = 1;
        }
    }
    return inherited;
}
