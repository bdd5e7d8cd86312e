// SPDX-License-Identifier: Apache-2.0
//
// Task tables: a head and an array of rows in one block.

#include "platform/task_table.h"

#include <cstdlib>
#include <cstring>

#include "log.hpp"
#include "platform/node.h"
#include "platform_codes.hpp"

namespace {

constexpr uint32_t kMagic = 0x7461736bu;
constexpr uint32_t kMaxCapacity = 4096;
constexpr uint32_t kAllPermissions = AAA_TASK_READ | AAA_TASK_WRITE | AAA_TASK_EXECUTE | AAA_TASK_DEBUG;

struct Task {
    char name[AAA_TASK_NAME_MAX + 1];
    uint32_t permissions;
};

}  // namespace

// The rows follow the head in the same block.
struct aaa_task_table {
    uint32_t magic;  // tells a table from any other pointer in a credential record
    uint32_t capacity;
    uint32_t count;
    uint32_t reserved;
};

namespace {

Task *rows_of(aaa_task_table *table) {
    return reinterpret_cast<Task *>(table + 1);
}

Task *find(aaa_task_table *table, const char *task) {
    for (uint32_t i = 0; i < table->count; ++i) {
        if (std::strcmp(rows_of(table)[i].name, task) == 0) {
            return rows_of(table) + i;
        }
    }
    return nullptr;
}

std::size_t size_of(uint32_t capacity) {
    return sizeof(aaa_task_table) + capacity * sizeof(Task);
}

}  // namespace

using namespace aaaplatform;

extern "C" {

aaa_task_table_t *aaa_task_table_create(uint32_t capacity) {
    if (capacity == 0 || capacity > kMaxCapacity) {
        return nullptr;
    }
    auto *table = static_cast<aaa_task_table *>(std::calloc(1, size_of(capacity)));
    if (table != nullptr) {
        table->magic = kMagic;
        table->capacity = capacity;
    }
    return table;
}

cerrno aaa_task_table_grant(aaa_task_table_t *table, const char *task, uint32_t permissions) {
    if (table == nullptr || task == nullptr || (permissions & ~kAllPermissions) != 0) {
        return HOST_INVALID_ARG;
    }
    const std::size_t len = strnlen(task, AAA_TASK_NAME_MAX + 1);
    if (len == 0 || len > AAA_TASK_NAME_MAX) {
        return HOST_INVALID_ARG;
    }
    Task *row = find(table, task);
    if (row == nullptr) {
        if (table->count == table->capacity) {
            return HOST_NO_MEMORY;
        }
        row = rows_of(table) + table->count++;
        std::memcpy(row->name, task, len + 1);
    }
    row->permissions |= permissions;
    return 0;
}

uint32_t aaa_task_table_permissions(const aaa_task_table_t *table, const char *task) {
    if (table == nullptr || task == nullptr) {
        return 0;
    }
    const Task *rows = reinterpret_cast<const Task *>(table + 1);
    for (uint32_t i = 0; i < table->count; ++i) {
        if (std::strcmp(rows[i].name, task) == 0) {
            return rows[i].permissions;
        }
    }
    return 0;
}

void aaa_destroy_task_table(void *task_table) {
    auto *table = static_cast<aaa_task_table *>(task_table);
    if (table == nullptr) {
        return;
    }
    // A leak is better than freeing an unknown block.
    if (table->magic != kMagic) {
        log(kLogError, "BAD_TASK_TABLE",
            "A credential record carries a task table that this host did not make; it is not freed");
        return;
    }
    // A user's permissions are confidential.
    explicit_bzero(table, size_of(table->capacity));
    std::free(table);
}

}  // extern "C"
