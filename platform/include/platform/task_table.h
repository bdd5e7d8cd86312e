/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_TASK_TABLE_H
#define PLATFORM_TASK_TABLE_H

/**
 * @file
 * @brief Task tables of this host: a user's permissions, per task.
 *
 * A credential record carries a table as an opaque pointer; the library passes it
 * to aaa_destroy_task_table() when it frees the record. On this host a credential
 * record may carry only tables made here. One thread uses a table at a time.
 */

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Permissions on a task. */
#define AAA_TASK_READ    0x1u
#define AAA_TASK_WRITE   0x2u
#define AAA_TASK_EXECUTE 0x4u
#define AAA_TASK_DEBUG   0x8u

/** Longest task name, without its NUL. */
#define AAA_TASK_NAME_MAX 31

typedef struct aaa_task_table aaa_task_table_t;

/**
 * Makes an empty task table.
 *
 * @param[in] capacity tasks that the table can hold, 1 to 4096
 *
 * Ownership: *Caller frees*, with aaa_destroy_task_table().
 *
 * @return the table, or null when the capacity is out of range or memory is exhausted
 */
PLATFORM_API aaa_task_table_t *aaa_task_table_create(uint32_t capacity);

/**
 * Adds permissions on a task to those that the table grants already.
 *
 * @param[in] table       the table
 * @param[in] task        task name, 1 to AAA_TASK_NAME_MAX characters
 * @param[in] permissions AAA_TASK_ bits
 *
 * Ownership: *Copied in*: the task name.
 *
 * @return
 * - 0: done
 * - 0xa2580200: an argument is null or out of range
 * - 0xa2580400: the table is full
 *
 * On failure the table is unchanged.
 */
PLATFORM_API cerrno aaa_task_table_grant(aaa_task_table_t *table, const char *task, uint32_t permissions);

/**
 * Tells which permissions the table grants on a task.
 *
 * @param[in] table the table, may be null
 * @param[in] task  task name, may be null
 *
 * @return AAA_TASK_ bits, 0 when the task is not in the table
 */
PLATFORM_API uint32_t aaa_task_table_permissions(const aaa_task_table_t *table, const char *task);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_TASK_TABLE_H */
