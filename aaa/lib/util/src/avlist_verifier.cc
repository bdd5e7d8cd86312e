// SPDX-License-Identifier: Apache-2.0
//
// The check of a whole list: the record, the chain, each buffer, each pair. The first
// fault ends it. Nothing of the library is called, so its errors are not repeated here.

#include "internal/avlist_verifier.hpp"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace aaautil {

namespace {

using Bytes = const unsigned char *;

// Offsets and numbers of the documented layout, deliberately not taken from the
// headers.
constexpr std::size_t kBufferHead = 32;
constexpr std::size_t kPairHead = 16;
constexpr std::size_t kSmallestBuffer = 512;
constexpr uint32_t kDeleted = 2070;

template <typename T>
T read(Bytes at, std::size_t offset) noexcept {
    T value;
    std::memcpy(&value, at + offset, sizeof value);
    return value;
}

bool all_zero(Bytes from, Bytes to) noexcept {
    for (; from != to; ++from) {
        if (*from != 0) {
            return false;
        }
    }
    return true;
}

// What is checked now, and the first fault found.
struct Check {
    ListOrigin origin;
    Verdict verdict{};
    uint64_t live = 0;
    unsigned buffer = 0;
    unsigned pair = 0;

    [[gnu::format(printf, 2, 3)]] bool fault(const char *format, ...) noexcept {
        va_list args;
        va_start(args, format);
        std::vsnprintf(verdict.fault, sizeof verdict.fault, format, args);
        va_end(args);
        return false;
    }
};

bool check_record(Check &check, Bytes list) noexcept {
    if (std::memchr(list + 24, 0, 31) == nullptr) {
        return check.fault("the name has no end");
    }
    if (check.origin == ListOrigin::built && read<uint32_t>(list, 0) != 0) {
        return check.fault("reserved bytes 0 to 3 are 0x%x", read<uint32_t>(list, 0));
    }
    if (check.origin == ListOrigin::built && list[5] != 0) {
        return check.fault("reserved byte 5 is 0x%x", list[5]);
    }
    if (check.origin == ListOrigin::built && list[55] != 0) {
        return check.fault("pad byte 55 is 0x%x", list[55]);
    }
    const bool empty = read<uint16_t>(list, 6) == 0;
    if (empty != (read<Bytes>(list, 8) == nullptr) || empty != (read<Bytes>(list, 16) == nullptr)) {
        return check.fault("count %u does not agree with the buffer pointers (first %s, last %s)",
                           unsigned{read<uint16_t>(list, 6)},
                           read<Bytes>(list, 8) == nullptr ? "null" : "set",
                           read<Bytes>(list, 16) == nullptr ? "null" : "set");
    }
    return true;
}

// Checks a pair; `room` used bytes are left. Returns the bytes that the pair takes.
bool check_pair(Check &check, Bytes pair, std::size_t room, std::size_t &taken) noexcept {
    if (room < kPairHead) {
        return check.fault("buffer %u, pair %u: %zu bytes are too few for a head", check.buffer, check.pair,
                           room);
    }
    const std::size_t len = read<uint32_t>(pair, 8);
    taken = (kPairHead + len + 3) / 4 * 4;
    if (taken > room) {
        return check.fault("buffer %u, pair %u: %zu value bytes pass free_mem", check.buffer, check.pair,
                           len);
    }
    if (check.origin == ListOrigin::built && !all_zero(pair + kPairHead + len, pair + taken)) {
        return check.fault("buffer %u, pair %u: pad bytes are not zero", check.buffer, check.pair);
    }
    return true;
}

bool check_pairs(Check &check, Bytes begin, Bytes end) noexcept {
    bool last_is_live = false;
    check.pair = 0;
    for (Bytes at = begin; at != end; ++check.pair) {
        std::size_t taken = 0;
        if (!check_pair(check, at, static_cast<std::size_t>(end - at), taken)) {
            return false;
        }
        last_is_live = read<uint32_t>(at, 0) != kDeleted;
        check.live += last_is_live ? 1 : 0;
        at += taken;
    }
    if (!last_is_live) {
        return check.fault("buffer %u: the last pair is deleted", check.buffer);
    }
    return true;
}

bool check_buffer(Check &check, Bytes buffer) noexcept {
    const std::size_t size = read<uint32_t>(buffer, 24);
    const auto begin = reinterpret_cast<std::uintptr_t>(buffer);
    const auto free_mem = reinterpret_cast<std::uintptr_t>(read<Bytes>(buffer, 16));
    if (size % 4 != 0 || size < kSmallestBuffer) {
        return check.fault("buffer %u: size %zu", check.buffer, size);
    }
    if (free_mem < begin + kBufferHead || free_mem > begin + size) {
        return check.fault("buffer %u: free_mem is outside", check.buffer);
    }
    if (free_mem % 4 != 0) {
        return check.fault("buffer %u: free_mem is not aligned", check.buffer);
    }
    if (free_mem == begin + kBufferHead) {
        return check.fault("buffer %u: no pairs", check.buffer);
    }
    return check_pairs(check, buffer + kBufferHead, read<Bytes>(buffer, 16));
}

// The prev links rule out cycles: the first buffer has none, and no two
// buffers can be the previous one of a third.
bool check_chain(Check &check, Bytes list) noexcept {
    Bytes previous = nullptr;
    for (Bytes buffer = read<Bytes>(list, 8); buffer != nullptr; ++check.buffer) {
        if (read<Bytes>(buffer, 0) != previous) {
            return check.fault("buffer %u: prev does not lead back", check.buffer);
        }
        if (!check_buffer(check, buffer)) {
            return false;
        }
        previous = buffer;
        buffer = read<Bytes>(buffer, 8);
    }
    if (previous != read<Bytes>(list, 16)) {
        return check.fault("the last buffer is not where the chain ends");
    }
    return true;
}

bool check_count(Check &check, Bytes list) noexcept {
    const uint64_t count = read<uint16_t>(list, 6);
    if (check.origin == ListOrigin::built && count != check.live) {
        return check.fault("count %u, but %u live pairs", static_cast<unsigned>(count),
                           static_cast<unsigned>(check.live));
    }
    return true;
}

}  // namespace

Verdict verify_list(const void *list, ListOrigin origin) noexcept {
    Check check{.origin = origin};
    const auto *const bytes = static_cast<Bytes>(list);
    static_cast<void>(check_record(check, bytes) && check_chain(check, bytes) && check_count(check, bytes));
    return check.verdict;
}

}  // namespace aaautil
