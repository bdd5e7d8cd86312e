/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The program's own definitions of libc functions that tests control. No
 * header of such a function is included: some compilers refuse a second
 * definition after one.
 */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <dlfcn.h>
#include <errno.h>

#include "testkit/fake_libc.h"

struct fake_libc_hooks fake_libc;

int access(const char *path, int mode);
unsigned alarm(unsigned seconds);
int getpid(void);
void *popen(const char *command, const char *mode);
struct termios;
int tcgetattr(int fd, struct termios *settings);
int tcsetattr(int fd, int action, const struct termios *settings);
long time(long *out);
int ttyname_r(int fd, char *buffer, size_t size);
int __ttyname_r_chk(int fd, char *buffer, size_t size,
                    size_t room); /* what a build with checked functions calls */

/* The definitions after these. A union, because C has no cast from a data to
 * a function pointer. */
union function {
    void *object;
    int (*access)(const char *, int);
    unsigned (*alarm)(unsigned);
    int (*getpid)(void);
    void *(*popen)(const char *, const char *);
    int (*tcgetattr)(int, struct termios *);
    int (*tcsetattr)(int, int, const struct termios *);
    long (*time)(long *);
    int (*ttyname_r)(int, char *, size_t);
};
enum which { ACCESS, ALARM, GETPID, POPEN, TCGETATTR, TCSETATTR, TIME, TTYNAME_R, FUNCTIONS };
static union function functions[FUNCTIONS];

/* Looked up at load: a later lookup could wait for the loader's lock, and for ever if
 * the thread that holds it waits for this one. */
__attribute__((constructor)) static void look_up(void) {
    static const char *const names[FUNCTIONS] = {"access",    "alarm",     "getpid", "popen",
                                                 "tcgetattr", "tcsetattr", "time",   "ttyname_r"};
    for (int i = 0; i < FUNCTIONS; ++i) {
        functions[i].object = dlsym(RTLD_NEXT, names[i]);
    }
}

static union function next(enum which which) {
    if (functions[which].object == NULL) {
        look_up();
    }
    return functions[which];
}

static int same(const char *a, const char *b) {
    while (*a != '\0' && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

static int answered(int error) {
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

int access(const char *path, int mode) {
    if (path != NULL && same(path, AAA_PKG_ROOT "/lib/libsysdb.so")) {
        return answered(fake_presence(path, mode));
    }
    return fake_libc.access != NULL ? answered(fake_libc.access(path, mode))
                                    : next(ACCESS).access(path, mode);
}

unsigned alarm(unsigned seconds) {
    return fake_libc.alarm != NULL ? fake_libc.alarm(seconds) : next(ALARM).alarm(seconds);
}

int getpid(void) {
    return fake_libc.getpid != NULL ? fake_libc.getpid() : next(GETPID).getpid();
}

void *popen(const char *command, const char *mode) {
    return fake_libc.popen != NULL ? fake_libc.popen(command, mode) : next(POPEN).popen(command, mode);
}

/* Without an error from the hook, errno is what it was before the call. */
static int failed(int error, int before) {
    errno = error != 0 ? error : before;
    return -1;
}

int tcgetattr(int fd, struct termios *settings) {
    const int before = errno;
    int error = 0;
    return fake_libc.tcgetattr != NULL && fake_libc.tcgetattr(fd, &error) != 0
               ? failed(error, before)
               : next(TCGETATTR).tcgetattr(fd, settings);
}

int tcsetattr(int fd, int action, const struct termios *settings) {
    const int before = errno;
    int error = 0;
    return fake_libc.tcsetattr != NULL && fake_libc.tcsetattr(fd, action, &error) != 0
               ? failed(error, before)
               : next(TCSETATTR).tcsetattr(fd, action, settings);
}

long time(long *out) {
    if (fake_libc.time == NULL) {
        return next(TIME).time(out);
    }
    const long now = fake_libc.time();
    if (out != NULL) {
        *out = now;
    }
    return now;
}

int ttyname_r(int fd, char *buffer, size_t size) {
    return fake_libc.ttyname_r != NULL ? fake_libc.ttyname_r(fd, buffer, size)
                                       : next(TTYNAME_R).ttyname_r(fd, buffer, size);
}

int __ttyname_r_chk(int fd, char *buffer, size_t size, size_t room) {
    return ttyname_r(fd, buffer, size < room ? size : room);
}
