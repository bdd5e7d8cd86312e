/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Allocations that fail on demand: the calls of fail_alloc.c. Each thread is armed by
 * itself. C++ code uses fail_alloc_region.hpp.
 */
#ifndef TESTKIT_FAIL_ALLOC_H
#define TESTKIT_FAIL_ALLOC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 0 where a sanitizer owns the malloc family, so nothing can be made to fail. */
int fail_alloc_available(void);
/* The k-th allocation from now fails; with all_from_there, every later one too. */
void fail_alloc_arm(unsigned k, int all_from_there);
void fail_alloc_disarm(void);
/* Allocations counted, and made to fail, since the last arming. */
unsigned fail_alloc_counted(void);
unsigned fail_alloc_fired(void);
/* Blocks taken since the last arming, while armed and not paused, and not freed yet (at most 1024). */
unsigned fail_alloc_outstanding(void);
/* Nestable. */
void fail_alloc_pause(void);
void fail_alloc_resume(void);
/* Called with every block that this thread frees, before it is freed; null
 * ends that. The function must not allocate or free. */
void fail_alloc_watch_frees(void (*watch)(unsigned char *block, size_t size));

#ifdef __cplusplus
}
#endif

#endif /* TESTKIT_FAIL_ALLOC_H */
