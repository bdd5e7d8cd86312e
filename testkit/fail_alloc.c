/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The program's malloc family: hands every call on to the next definition
 * (libc's, or the address sanitizer's), unless this thread is armed and the
 * call is the one to fail. Built without builtins, and without <stdlib.h>,
 * so that the compiler takes these for ordinary functions.
 */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <dlfcn.h>
#include <errno.h>
#include <stddef.h>
#include <stdint.h>

#include "fail_alloc.h"

#if defined(__has_feature)
#define HAS_FEATURE(x) __has_feature(x)
#else
#define HAS_FEATURE(x) 0
#endif
/* clang links the address sanitizer's malloc into the program itself, unless it is told to
 * use the shared runtime (-shared-libasan). gcc always uses that. */
#if defined(__SANITIZE_THREAD__) || HAS_FEATURE(thread_sanitizer) || HAS_FEATURE(memory_sanitizer) || \
    (HAS_FEATURE(address_sanitizer) && !defined(AAA_SHARED_ASAN))
#define REPLACE_MALLOC 0
#else
#define REPLACE_MALLOC 1
#endif

/* Initial-exec: a first access must not allocate. */
#define THREAD_LOCAL static __thread __attribute__((tls_model("initial-exec")))
THREAD_LOCAL int armed;
THREAD_LOCAL int paused;
THREAD_LOCAL int fail_all;
THREAD_LOCAL unsigned fail_at;
THREAD_LOCAL unsigned counted;
THREAD_LOCAL unsigned fired;
THREAD_LOCAL unsigned outstanding_count;
THREAD_LOCAL void (*freed)(unsigned char *block, size_t size);

int fail_alloc_available(void) {
    return REPLACE_MALLOC;
}

void fail_alloc_arm(unsigned k, int all_from_there) {
    fail_at = k;
    fail_all = all_from_there;
    counted = 0;
    fired = 0;
    outstanding_count = 0;
    armed = 1;
}

void fail_alloc_disarm(void) {
    armed = 0;
}
unsigned fail_alloc_counted(void) {
    return counted;
}
unsigned fail_alloc_fired(void) {
    return fired;
}
unsigned fail_alloc_outstanding(void) {
    return outstanding_count;
}
void fail_alloc_pause(void) {
    ++paused;
}
void fail_alloc_resume(void) {
    --paused;
}
void fail_alloc_watch_frees(void (*watch)(unsigned char *, size_t)) {
    freed = watch;
}

#if REPLACE_MALLOC

/* Blocks taken since the arming, to be told from those that were there before
 * and from those of paused regions. */
#define MOST_OUTSTANDING 1024
THREAD_LOCAL const void *outstanding[MOST_OUTSTANDING];

void *malloc(size_t size);
void *calloc(size_t n, size_t size);
void *realloc(void *p, size_t size);
void free(void *p);
char *strdup(const char *text);
char *strndup(const char *text, size_t limit);
size_t malloc_usable_size(void *p);

static int refuse(void) {
    if (armed == 0 || paused != 0) {
        return 0;
    }
    ++counted;
    if (counted == fail_at || (fail_all != 0 && counted > fail_at)) {
        ++fired;
        errno = ENOMEM;
        return 1;
    }
    return 0;
}

static void *taken(void *block) {
    if (block != NULL && armed != 0 && paused == 0 && outstanding_count < MOST_OUTSTANDING) {
        outstanding[outstanding_count++] = block;
    }
    return block;
}

/* Returns whether the block was among those taken. */
static int given_back(const void *block) {
    for (unsigned i = outstanding_count; i > 0; --i) {
        if (outstanding[i - 1] == block) {
            outstanding[i - 1] = outstanding[--outstanding_count];
            return 1;
        }
    }
    return 0;
}

static void *(*next_malloc)(size_t);
static void *(*next_calloc)(size_t, size_t);
static void *(*next_realloc)(void *, size_t);
static void (*next_free)(void *);

/* Serves what the dynamic loader asks for while the next definitions are
 * being looked up; never released. */
static _Alignas(16) unsigned char arena[65536];
static size_t arena_used;

static int in_arena(const void *p) {
    return (uintptr_t)p >= (uintptr_t)arena && (uintptr_t)p < (uintptr_t)(arena + sizeof arena);
}

static void *arena_take(size_t size) {
    const size_t wanted = (size + 15u) & ~(size_t)15u;
    const size_t at = __atomic_fetch_add(&arena_used, wanted, __ATOMIC_RELAXED);
    if (at > sizeof arena || wanted > sizeof arena - at) {
        return NULL;
    }
    return arena + at;
}

static void *lookup(const char *name) {
    void *const found = dlsym(RTLD_NEXT, name);
    if (found == NULL) {
        __builtin_trap();
    }
    return found;
}

static void copy(unsigned char *to, const unsigned char *from, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        to[i] = from[i];
    }
}

THREAD_LOCAL int resolving;

static int ready(void) {
    if (next_free != NULL) {
        return 1;
    }
    if (resolving != 0) {
        return 0;
    }
    resolving = 1;
    /* A union, because C has no cast from a data to a function pointer. */
    union {
        void *object;
        void *(*malloc_fn)(size_t);
        void *(*calloc_fn)(size_t, size_t);
        void *(*realloc_fn)(void *, size_t);
        void (*free_fn)(void *);
    } u;
    u.object = lookup("malloc");
    next_malloc = u.malloc_fn;
    u.object = lookup("calloc");
    next_calloc = u.calloc_fn;
    u.object = lookup("realloc");
    next_realloc = u.realloc_fn;
    u.object = lookup("free");
    __atomic_store_n(&next_free, u.free_fn, __ATOMIC_RELEASE);
    resolving = 0;
    return 1;
}

void *malloc(size_t size) {
    if (refuse()) {
        return NULL;
    }
    return ready() ? taken(next_malloc(size)) : arena_take(size);
}

void *calloc(size_t n, size_t size) {
    if (refuse()) {
        return NULL;
    }
    return ready() ? taken(next_calloc(n, size)) : arena_take(n * size);
}

static void *leave_arena(const unsigned char *p, size_t size) {
    const size_t at_most = (size_t)(arena + sizeof arena - p);
    unsigned char *const moved = malloc(size);
    if (moved != NULL) {
        copy(moved, p, size < at_most ? size : at_most);
    }
    return moved;
}

void *realloc(void *p, size_t size) {
    if (in_arena(p)) {
        return leave_arena(p, size);
    }
    if (refuse()) {
        return NULL;
    }
    if (!ready()) {
        return arena_take(size);
    }
    void *const moved = next_realloc(p, size);
    return moved != NULL && (p == NULL || given_back(p)) ? taken(moved) : moved;
}

void free(void *p) {
    if (p == NULL || in_arena(p)) {
        return;
    }
    if (freed != NULL && paused == 0) {
        freed(p, malloc_usable_size(p));
    }
    given_back(p);
    if (ready()) {
        next_free(p);
    }
}

static char *duplicate(const char *text, size_t length) {
    char *const made = malloc(length + 1);
    if (made != NULL) {
        copy((unsigned char *)made, (const unsigned char *)text, length);
        made[length] = '\0';
    }
    return made;
}

#if defined(__SANITIZE_ADDRESS__)
/* The leak sanitizer knows the dynamic loader's own blocks by who called
 * malloc; that is this file now. */
const char *__lsan_default_suppressions(void);
const char *__lsan_default_suppressions(void) {
    return "leak:_dl_map_object_deps\n";
}
const char *__lsan_default_options(void);
const char *__lsan_default_options(void) {
    return "print_suppressions=0";
}
#endif

/* The address sanitizer's strdup does not come through malloc. */
char *strdup(const char *text) {
    size_t length = 0;
    while (text[length] != '\0') {
        ++length;
    }
    return duplicate(text, length);
}

char *strndup(const char *text, size_t limit) {
    size_t length = 0;
    while (length < limit && text[length] != '\0') {
        ++length;
    }
    return duplicate(text, length);
}

#endif
