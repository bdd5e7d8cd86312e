// SPDX-License-Identifier: Apache-2.0
//
// Guards for memory that the library holds while it works. Blocks handed to
// callers come from malloc, so release() hands out what free() takes back.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>

#include "aaa/avpair.h"

namespace aaautil {

struct FreeDeleter {
    void operator()(void *p) const noexcept { std::free(p); }
};

struct ListDeleter {
    void operator()(avlist *list) const noexcept { aaa_avpair_free_list(list); }
};

// malloc'ed block of T (or T[]).
template <typename T>
using malloc_ptr = std::unique_ptr<T, FreeDeleter>;

// List that the library made and frees unless it is handed on.
using list_ptr = std::unique_ptr<avlist, ListDeleter>;

// Overwrites memory that held a secret; never optimised away.
inline void wipe(void *p, std::size_t n) noexcept {
    if (p != nullptr && n != 0) {
        explicit_bzero(p, n);
    }
}

}  // namespace aaautil
