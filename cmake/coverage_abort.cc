// SPDX-License-Identifier: Apache-2.0
//
// Linked into the library of a coverage build in place of abort(): a process
// that aborts would lose its counters, and with them every assertion that a
// death test reaches. Each shared object has counters of its own, so this must
// stand in the object that aborts.

extern "C" {
[[noreturn]] void __real_abort();
[[noreturn]] void __wrap_abort();
void __gcov_dump();
}

void __wrap_abort() {
    __gcov_dump();
    __real_abort();
}
