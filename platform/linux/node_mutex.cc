// SPDX-License-Identifier: Apache-2.0
//
// The threads of this process that wait for a mutex: a fixed table that each
// waiting thread enters and leaves. All of it is atomic: it is read at any moment
// by other threads, and from core files, and a lock of its own could be part of
// the hang that it describes.

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/control.h"
#include "platform/node.h"

namespace aaaplatform {

namespace {

constexpr std::size_t kSlots = 64;
constexpr std::size_t kNameWords = sizeof(aaa_platform_mutex_wait_t::function) / sizeof(uint64_t);

// A slot is written under an odd sequence number; a reader that sees the same
// even number before and after has seen one state. Release stores and acquire
// loads of the fields make the odd number visible to a reader of a new field.
struct Slot {
    std::atomic<int32_t> owner{0};  // thread id, 0 = free
    std::atomic<uint32_t> sequence{0};
    std::atomic<int32_t> process{0};  // a forked child inherits the table, not the threads
    std::atomic<int32_t> line{0};
    std::atomic<const void *> mutex{nullptr};
    std::atomic<uint64_t> since{0};
    std::array<std::atomic<uint64_t>, kNameWords> name{};
};

constinit std::array<Slot, kSlots> g_slots{};
thread_local Slot *t_slot = nullptr;

uint64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

Slot *claim(int32_t thread, int32_t process) {
    for (Slot &slot : g_slots) {
        int32_t owner = slot.owner.load(std::memory_order_relaxed);
        const bool inherited = owner != 0 && slot.process.load(std::memory_order_relaxed) != process;
        if ((owner == 0 || inherited) &&
            slot.owner.compare_exchange_strong(owner, thread, std::memory_order_acquire)) {
            return &slot;
        }
    }
    return nullptr;  // more waiters than slots: this one is not listed
}

void fill(Slot &slot, const void *mutex, const char *function_name, int line, int32_t process) {
    uint64_t words[kNameWords] = {};
    if (function_name != nullptr) {
        std::memcpy(words, function_name, strnlen(function_name, sizeof words - 1));
    }
    const uint32_t sequence = slot.sequence.load(std::memory_order_relaxed) | 1u;
    slot.sequence.store(sequence, std::memory_order_relaxed);
    slot.process.store(process, std::memory_order_release);
    slot.line.store(line, std::memory_order_release);
    slot.mutex.store(mutex, std::memory_order_release);
    slot.since.store(now_ms(), std::memory_order_release);
    for (std::size_t i = 0; i < kNameWords; ++i) {
        slot.name[i].store(words[i], std::memory_order_release);
    }
    slot.sequence.store(sequence + 1, std::memory_order_release);
}

// One consistent view of a slot; false when it is free, another process's, or
// being changed.
bool read_slot(const Slot &slot, int32_t process, uint64_t now, aaa_platform_mutex_wait_t *out) {
    const uint32_t before = slot.sequence.load(std::memory_order_acquire);
    out->thread = slot.owner.load(std::memory_order_acquire);
    const int32_t owner_process = slot.process.load(std::memory_order_acquire);
    out->line = slot.line.load(std::memory_order_acquire);
    out->mutex = slot.mutex.load(std::memory_order_acquire);
    const uint64_t since = slot.since.load(std::memory_order_acquire);
    uint64_t words[kNameWords];
    for (std::size_t i = 0; i < kNameWords; ++i) {
        words[i] = slot.name[i].load(std::memory_order_acquire);
    }
    if ((before & 1u) != 0 || before != slot.sequence.load(std::memory_order_relaxed) || out->thread == 0 ||
        out->mutex == nullptr || owner_process != process) {
        return false;
    }
    std::memcpy(out->function, words, sizeof words);
    out->waited_ms = now > since ? now - since : 0;
    return true;
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function_name, int line) {
    const int saved_errno = errno;
    const auto process = static_cast<int32_t>(getpid());
    if (t_slot == nullptr) {
        t_slot = claim(static_cast<int32_t>(gettid()), process);
    }
    if (t_slot != nullptr) {
        fill(*t_slot, mutex, function_name, line, process);
    }
    errno = saved_errno;
}

void ptd_unset_mutex_block(void) {
    if (t_slot != nullptr) {
        t_slot->mutex.store(nullptr, std::memory_order_relaxed);
        t_slot->owner.store(0, std::memory_order_release);
        t_slot = nullptr;
    }
}

uint32_t aaa_platform_mutex_waits(aaa_platform_mutex_wait_t *out, uint32_t capacity) {
    const auto process = static_cast<int32_t>(getpid());
    const uint64_t now = now_ms();
    uint32_t found = 0;
    for (const Slot &slot : g_slots) {
        aaa_platform_mutex_wait_t wait{};
        if (read_slot(slot, process, now, &wait)) {
            if (out != nullptr && found < capacity) {
                out[found] = wait;
            }
            ++found;
        }
    }
    return found;
}

}  // extern "C"
