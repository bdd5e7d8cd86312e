// SPDX-License-Identifier: Apache-2.0
//
// Named allocation and the queue. This host does not account per name: its tools
// for that purpose work on malloc itself.

#include "platform/memory.h"

#include <cstdlib>
#include <cstring>

namespace {

// The link is the first pointer of a record; memcpy, because the record's own
// type is the caller's.
void *next_of(const void *record) {
    void *next;
    std::memcpy(&next, record, sizeof next);
    return next;
}

void set_next(void *record, void *next) {
    std::memcpy(record, &next, sizeof next);
}

}  // namespace

extern "C" {

void *malloc_named(size_t size, const char *) {
    return std::malloc(size);
}

void *calloc_named(size_t count, size_t size, const char *) {
    return std::calloc(count, size);
}

void *realloc_named(void *ptr, size_t size, const char *) {
    return std::realloc(ptr, size);
}

void queue_init(aaa_queue_t *queue, uint32_t maximum) {
    if (queue != nullptr) {
        *queue = aaa_queue_t{nullptr, nullptr, 0, maximum};
    }
}

void queue_enqueue(aaa_queue_t *queue, void *record) {
    if (queue == nullptr || record == nullptr || (queue->maximum != 0 && queue->count >= queue->maximum)) {
        return;
    }
    set_next(record, nullptr);
    if (queue->tail == nullptr) {
        queue->head = record;
    } else {
        set_next(queue->tail, record);
    }
    queue->tail = record;
    ++queue->count;
}

void queue_unqueue(aaa_queue_t *queue, void *record) {
    if (queue == nullptr || record == nullptr) {
        return;
    }
    void *previous = nullptr;
    void *at = queue->head;
    while (at != nullptr && at != record) {
        previous = at;
        at = next_of(at);
    }
    if (at == nullptr) {
        return;
    }
    void *after = next_of(record);
    if (previous == nullptr) {
        queue->head = after;
    } else {
        set_next(previous, after);
    }
    if (queue->tail == record) {
        queue->tail = previous;
    }
    set_next(record, nullptr);
    --queue->count;
}

}  // extern "C"
