/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_SYSDB_CHANGES_H
#define PLATFORM_SYSDB_CHANGES_H

/**
 * @file
 * @brief Several changes of the system database as one.
 *
 * All of them are made or none, also when the process or the machine fails, and
 * no reader sees a part of them. For tools that load, restore or convert; other
 * programs need only platform/sysdb.h.
 */

#include "platform/sysdb.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Codes of sysdb_apply() besides those of platform/sysdb.h. */
#define SYSDB_ERR_CONFLICT      0x8081ae00u /**< an item is not as the caller expects it */
#define SYSDB_ERR_NOT_SUPPORTED 0x8081b000u /**< the provider makes one change at a time only */

/* Operations of a change. */
#define SYSDB_CHANGE_SET 1u /**< create or replace the item; a directory when the type says so */
#define SYSDB_CHANGE_DELETE \
    2u /**< delete the item, which must be there; with '/' at its end, a directory made by hand */
#define SYSDB_CHANGE_PRUNE \
    3u /**< delete all below the directory that no other change of the call sets or expects */
#define SYSDB_CHANGE_EXPECT 4u /**< change nothing; the item must be as given, or absent for SYSDB_TYPE_ANY */

/*
 * With SYSDB_TYPE_ANY and a path that ends in '/', SYSDB_CHANGE_EXPECT says that nothing is in the directory,
 * which was not made by hand either. An older provider refuses that with SYSDB_ERR_BAD_PATH.
 */

/** One change. */
typedef struct sysdb_change {
    uint32_t operation; /**< SYSDB_CHANGE_... */
    uint32_t datatype;  /**< set and expect; ignored by the others */
    const char *path;   /**< relative to the connection; prune takes "" for the directory of the bind point */
    const void *value;  /**< set and expect; may be null when length is 0 */
    uint32_t length;    /**< as for sysdb_item_set() */
} sysdb_change_t;

/**
 * Makes changes below one connection, in their order, as one.
 *
 * Each change sees the effect of the preceding ones. As with sysdb_item_set(), an
 * item that is set to its present type and value is not changed and not notified;
 * a directory that is pruned and set again in one call notifies only of the
 * differences. When it returns 0, all changes are as durable as a single
 * sysdb_item_set().
 *
 * @param[in]  conn    the connection
 * @param[in]  changes may be null when count is 0
 * @param[in]  count   elements of changes
 * @param[out] failed  may be null: on failure the index of the change that was refused, or count when it was
 *                     none of them; untouched on success
 *
 * Ownership: *Copied in*.
 *
 * @return
 * - 0: all changes are stored
 * - SYSDB_ERR_NOT_FOUND: an item to delete is missing
 * - SYSDB_ERR_CONFLICT: an item is not as expected
 * - SYSDB_ERR_NOT_SUPPORTED: the loaded provider is an older one
 * - SYSDB_ERR_INVALID_ARG: a null pointer or an unknown operation
 * - a code of sysdb_item_set()
 *
 * On failure the database is unchanged.
 */
PLATFORM_API cerrno sysdb_apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count,
                                uint32_t *failed);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSDB_CHANGES_H */
