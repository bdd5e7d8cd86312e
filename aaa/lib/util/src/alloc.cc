// SPDX-License-Identifier: Apache-2.0
//
// Allocation with a record of every live block. The records are in
// malloc_queue, oldest first, for debugging tools to walk; callers that use
// the wrappers from several threads serialise their calls.

#include "aaa/alloc.h"

#include <cstdlib>
#include <cstring>

#include "internal/trace.hpp"
#include "platform/bounded.h"
#include "platform/logging.h"
#include "platform/memory.h"

constinit aaa_queue_t malloc_queue = {};

namespace {

using aaautil::printable;

constinit bool queue_ready = false;

constexpr size_t kNameLimit = 255;

// False when there was nothing to record or no memory for the record; the
// caller's block is valid in both cases. The record is accounted to the caller,
// as its block is.
bool record_block(const char *name, uint32_t line, void *address, uint32_t size) {
    if (address == nullptr) {
        return false;
    }
    auto *record = static_cast<aaa_malloc_rec_t *>(malloc_named(sizeof(aaa_malloc_rec_t), name));
    if (record == nullptr) {
        return false;
    }
    std::memset(record, 0, sizeof *record);
    record->address = address;
    record->size = size;
    record->line = line;
    sstrncpy(record->name, printable(name), kNameLimit);
    if (!queue_ready) {
        queue_init(&malloc_queue, 0);
        queue_ready = true;
    }
    queue_enqueue(&malloc_queue, record);
    return true;
}

// Records are linked through their first word.
aaa_malloc_rec_t *next_record(const aaa_malloc_rec_t *record) {
    return static_cast<aaa_malloc_rec_t *>(record->link);
}

uintptr_t number_of(const void *address) {
    return reinterpret_cast<uintptr_t>(address);
}

// Drops the oldest record of an address; an address without one is ignored. The
// address is a number because its block may have been released.
void drop_record(uintptr_t address) {
    for (auto *record = static_cast<aaa_malloc_rec_t *>(malloc_queue.head); record != nullptr;
         record = next_record(record)) {
        if (number_of(record->address) == address) {
            queue_unqueue(&malloc_queue, record);
            std::free(record);
            return;
        }
    }
}

}  // namespace

extern "C" {

void *aaa_util_malloc(const char *name, uint32_t line, uint32_t size) {
    void *block = malloc_named(size, name);
    record_block(name, line, block, size);
    aaa_debug(AAA_DBG_MALLOC, "MEM MALLOC: %s [%d]: %p (size %d)", printable(name), line, block, size);
    return block;
}

void *aaa_util_realloc(const char *name, uint32_t line, void *ptr, uint32_t size) {
    const uintptr_t old_address = number_of(ptr);
    void *block = realloc_named(ptr, size, name);
    // The old record goes only when there is a new one; with an address that
    // did not move that is the older of the two.
    if (record_block(name, line, block, size)) {
        drop_record(old_address);
    }
    aaa_debug(AAA_DBG_MALLOC, "MEM REALLOC: %s [%d]: %p (size %d)", printable(name), line, block, size);
    return block;
}

void *aaa_util_calloc(const char *name, uint32_t line, uint32_t count, uint32_t size) {
    void *block = calloc_named(count, size, name);
    record_block(name, line, block, size);  // the element size, not the block's: kept
    aaa_debug(AAA_DBG_MALLOC, "MEM CALLOC: %s [%d]: %p (size %d)", printable(name), line, block,
              count * size);
    return block;
}

char *aaa_util_strdup(const char *name, uint32_t line, const char *str) {
    char *copy = str != nullptr ? strdup(str) : nullptr;
    if (copy != nullptr) {
        record_block(name, line, copy, static_cast<uint32_t>(std::strlen(str) + 1));
    }
    aaa_debug(AAA_DBG_MALLOC, "MEM STRDUP: %s [%d]: %p", printable(name), line, static_cast<void *>(copy));
    return copy;
}

void aaa_util_free(const char *name, uint32_t line, void *ptr) {
    drop_record(number_of(ptr));
    aaa_debug(AAA_DBG_MALLOC, "MEM FREE: %s [%d]: %p", printable(name), line, ptr);
    std::free(ptr);
}

aaa_queue_t *get_malloc_data(void) {
    return &malloc_queue;
}

}  // extern "C"
