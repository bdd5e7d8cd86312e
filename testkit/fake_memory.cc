// SPDX-License-Identifier: Apache-2.0
//
// Allocation, queues and bounded copies of the fake platform.

#include "platform/memory.h"

#include <cstdlib>
#include <cstring>

#include "platform/bounded.h"
#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

using fake::detail::Call;
using fake::detail::problem;

namespace {

bool refused(const char *function, size_t count, size_t size, const char *name) {
    const Call call(function, count * size, name);
    return call.scripted().has_value();
}

void *&link(void *record) {
    return *static_cast<void **>(record);
}

}  // namespace

void *malloc_named(size_t size, const char *name) {
    return refused("malloc_named", 1, size, name) ? nullptr : std::malloc(size);
}

void *calloc_named(size_t count, size_t size, const char *name) {
    return refused("calloc_named", count, size, name) ? nullptr : std::calloc(count, size);
}

void *realloc_named(void *ptr, size_t size, const char *name) {
    return refused("realloc_named", 1, size, name) ? nullptr : std::realloc(ptr, size);
}

void queue_init(aaa_queue_t *queue, uint32_t maximum) {
    const Call call("queue_init", queue, maximum);
    *queue = aaa_queue_t{nullptr, nullptr, 0, maximum};
}

void queue_enqueue(aaa_queue_t *queue, void *record) {
    const Call call("queue_enqueue", queue, record);
    link(record) = nullptr;
    if (queue->head == nullptr) {
        queue->head = record;
    } else {
        link(queue->tail) = record;
    }
    queue->tail = record;
    ++queue->count;
}

void queue_unqueue(aaa_queue_t *queue, void *record) {
    const Call call("queue_unqueue", queue, record);
    void *previous = nullptr;
    for (void *at = queue->head; at != nullptr; previous = at, at = link(at)) {
        if (at != record) {
            continue;
        }
        (previous == nullptr ? queue->head : link(previous)) = link(record);
        if (queue->tail == record) {
            queue->tail = previous;
        }
        --queue->count;
        return;
    }
    problem("queue_unqueue of a record that is not in the queue");
}

int memcpy_s(void *dst, size_t dst_size, const void *src, size_t n) {
    const Call call("memcpy_s", dst_size, n);
    if (call.scripted()) {
        return static_cast<int>(*call.scripted());
    }
    if (n > dst_size) {
        std::memset(dst, 0, dst_size);
        return 1;
    }
    std::memcpy(dst, src, n);
    return 0;
}

int memset_s(void *dst, size_t dst_size, int c, size_t n) {
    const Call call("memset_s", dst_size, c, n);
    std::memset(dst, c, n < dst_size ? n : dst_size);
    return n <= dst_size ? 0 : 1;
}

int strcmp_s(const char *dst, size_t dst_size, const char *src, int *indicator) {
    const Call call("strcmp_s", dst, dst_size, src);
    if (dst == nullptr || src == nullptr) {
        *indicator = 1;
        return 1;
    }
    *indicator = std::strncmp(dst, src, dst_size);
    return 0;
}

char *sstrncpy(char *dst, const char *src, size_t limit) {
    const Call call("sstrncpy", src, limit);
    if (limit != 0) {
        const size_t n = strnlen(src, limit - 1);
        std::memcpy(dst, src, n);
        dst[n] = '\0';
    }
    return dst;
}

void *__memcpy_to_buf(void *dst, const void *src, size_t n, size_t dst_size) {
    const Call call("__memcpy_to_buf", n, dst_size);
    return std::memcpy(dst, src, n < dst_size ? n : dst_size);
}

char *__strncpy_to_buf(char *dst, const char *src, size_t n, size_t dst_size) {
    const Call call("__strncpy_to_buf", src, n, dst_size);
    if (dst_size != 0) {
        const size_t length = strnlen(src, n < dst_size - 1 ? n : dst_size - 1);
        std::memcpy(dst, src, length);
        dst[length] = '\0';
    }
    return dst;
}
