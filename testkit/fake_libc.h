/* SPDX-License-Identifier: Apache-2.0 */
/* The functions of libc that a test program takes over, and how the fake platform answers for them. */
#ifndef TESTKIT_FAKE_LIBC_H
#define TESTKIT_FAKE_LIBC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Answers access() for the database library's file: 0 or an errno value. */
int fake_presence(const char *path, int mode);

/* What the program's own libc functions call instead of libc's; null = pass on. */
struct fake_libc_hooks {
    int (*access)(const char *path, int mode); /* 0 or an errno value */
    unsigned (*alarm)(unsigned seconds);
    int (*getpid)(void);
    void *(*popen)(const char *command, const char *mode);
    /* 1 when they answer, 0 to pass on; error as above, but 0 fails too, without errno. */
    int (*tcgetattr)(int fd, int *error);
    int (*tcsetattr)(int fd, int action, int *error);
    long (*time)(void);
    int (*ttyname_r)(int fd, char *buffer, size_t size);
};
extern struct fake_libc_hooks fake_libc;

#ifdef __cplusplus
}
#endif

#endif /* TESTKIT_FAKE_LIBC_H */
