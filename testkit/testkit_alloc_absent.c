/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the test kit calls when a program is linked without the allocator that
 * can be made to fail: nothing fails. Weak, because fail_alloc.c has the same
 * names.
 */
#include <stddef.h>

#define WEAK __attribute__((weak))

WEAK int fail_alloc_available(void);
WEAK void fail_alloc_arm(unsigned k, int all_from_there);
WEAK void fail_alloc_disarm(void);
WEAK unsigned fail_alloc_counted(void);
WEAK unsigned fail_alloc_fired(void);
WEAK unsigned fail_alloc_outstanding(void);
WEAK void fail_alloc_pause(void);
WEAK void fail_alloc_resume(void);
WEAK void fail_alloc_watch_frees(void (*watch)(unsigned char *block, size_t size));

int fail_alloc_available(void) {
    return 0;
}
void fail_alloc_arm(unsigned k, int all_from_there) {
    (void)k;
    (void)all_from_there;
}
void fail_alloc_disarm(void) {}
unsigned fail_alloc_counted(void) {
    return 0;
}
unsigned fail_alloc_fired(void) {
    return 0;
}
unsigned fail_alloc_outstanding(void) {
    return 0;
}
void fail_alloc_pause(void) {}
void fail_alloc_resume(void) {}
void fail_alloc_watch_frees(void (*watch)(unsigned char *, size_t)) {
    (void)watch;
}
