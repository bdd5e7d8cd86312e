// SPDX-License-Identifier: Apache-2.0
//
// Replaces abort() in the library of a coverage build: a process that aborts would lose
// its counters, and with them the lines that a death test reaches. Each shared object
// has its own counters, so this must be linked into the object that aborts.

extern "C" {
[[noreturn]] void __real_abort();
[[noreturn]] void __wrap_abort();
void __gcov_dump();
// In programs with the test kit's allocator only.
[[gnu::weak]] void fail_alloc_pause();
}

void __wrap_abort() {
    // Writing the counters takes memory, also in a test of an abort without any.
    if (fail_alloc_pause != nullptr) {
        fail_alloc_pause();
    }
    __gcov_dump();
    __real_abort();
}
