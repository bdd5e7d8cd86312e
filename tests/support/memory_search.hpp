// SPDX-License-Identifier: Apache-2.0
//
// Searches this process's own memory for a secret. The secret is given inverted, so that
// the search does not find what it searches with.
#pragma once

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

// The complement of a text, made by the compiler.
template <std::size_t Size>
struct Inverted {
    char bytes[Size - 1];
    consteval explicit Inverted(const char (&text)[Size]) : bytes{} {
        for (std::size_t i = 0; i < Size - 1; ++i) {
            bytes[i] = static_cast<char>(~text[i]);
        }
    }
};

namespace memory_search {

// Shadow memory of sanitizers, which holds no copies, has at least this size.
inline constexpr std::uintptr_t kLargestMapping = std::uintptr_t{1} << 28;

// In place: a copy of the memory would be found, too.
template <std::size_t Size>
__attribute__((no_sanitize("address", "thread"))) std::size_t search(std::uintptr_t begin, std::uintptr_t end,
                                                                     const char (&inverted)[Size],
                                                                     bool erase) {
    std::size_t found = 0;
    for (std::uintptr_t at = begin; at + Size <= end; ++at) {
        auto *bytes = reinterpret_cast<volatile char *>(at);
        std::size_t i = 0;
        while (i < Size && static_cast<char>(~bytes[i]) == inverted[i]) {
            ++i;
        }
        found += i == Size ? 1 : 0;
        if (erase && i == Size) {
            bytes[0] = '\0';
        }
    }
    return found;
}

template <std::size_t Size>
std::size_t search_all(const char (&inverted)[Size], bool erase) {
    std::size_t found = 0;
    FILE *const maps = std::fopen("/proc/self/maps", "re");
    char line[512];
    while (maps != nullptr && std::fgets(line, sizeof line, maps) != nullptr) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char rights[8] = "";
        if (std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %7s", &begin, &end, rights) == 3 &&
            rights[0] == 'r' && rights[1] == 'w' && end - begin < kLargestMapping) {
            found += search(begin, end, inverted, erase);
        }
    }
    if (maps != nullptr) {
        std::fclose(maps);
    }
    return found;
}

}  // namespace memory_search

// Number of places in the writable memory of this process that hold the secret: the heap,
// the stacks, the variables, and the buffers of the C library.
template <std::size_t Size>
std::size_t copies_in_memory(const Inverted<Size> &secret) {
    return memory_search::search_all(secret.bytes, false);
}

// Erases the copies that a forked child has from its parent.
template <std::size_t Size>
void erase_copies_in_memory(const Inverted<Size> &secret) {
    memory_search::search_all(secret.bytes, true);
}
