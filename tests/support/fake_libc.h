/* SPDX-License-Identifier: Apache-2.0 */
#ifndef SUPPORT_FAKE_LIBC_H
#define SUPPORT_FAKE_LIBC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What the program's own libc functions call instead of libc's; null = pass on. */
struct fake_libc_hooks {
    const char *presence_path; /* access() of this path goes to presence */
    int (*presence)(const char *path, int mode); /* 0 or an errno value */
    int (*access)(const char *path, int mode);   /* 0 or an errno value */
    unsigned (*alarm)(unsigned seconds);
    int (*getpid)(void);
    void *(*popen)(const char *command, const char *mode);
    long (*time)(void);
    int (*ttyname_r)(int fd, char *buffer, size_t size);
};
extern struct fake_libc_hooks fake_libc;

#ifdef __cplusplus
}
#endif

#endif /* SUPPORT_FAKE_LIBC_H */
