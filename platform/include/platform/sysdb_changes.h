/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_SYSDB_CHANGES_H
#define PLATFORM_SYSDB_CHANGES_H

/**
 * @file
 * Several changes of the system database as one: all of them are made, or none
 * is, whatever happens meanwhile, and nobody ever sees a part of them. For
 * tools that load, restore or convert; what one process tells another needs
 * platform/sysdb.h alone.
 */

#include "platform/sysdb.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Codes of sysdb_apply() besides those of platform/sysdb.h. */
#define SYSDB_ERR_CONFLICT      0x8081ae00u /**< an item is not as the caller expected it */
#define SYSDB_ERR_NOT_SUPPORTED 0x8081b000u /**< the provider makes one change at a time only */

/* Operations of a change. */
#define SYSDB_CHANGE_SET    1u /**< create or replace the item; a directory when the type says so */
#define SYSDB_CHANGE_DELETE 2u /**< delete the item, which must be there; with '/' at its end, a directory made by hand */
#define SYSDB_CHANGE_PRUNE  3u /**< delete what is below the directory and no other change of the call sets or expects */
#define SYSDB_CHANGE_EXPECT 4u /**< nothing; but the item must be as given, or absent for SYSDB_TYPE_ANY */

/** One change. */
typedef struct sysdb_change {
    uint32_t    operation; /**< SYSDB_CHANGE_... */
    uint32_t    datatype;  /**< set and expect; not looked at by the others */
    const char *path;      /**< relative to the connection; prune takes "" for the directory of the bind point */
    const void *value;     /**< set and expect; may be null when length is 0 */
    uint32_t    length;    /**< as for sysdb_item_set() */
} sysdb_change_t;

/**
 * Makes changes below one connection, in their order, as one.
 *
 * Each change sees what those before it did. As with sysdb_item_set(), what is
 * there already is not changed and nobody is notified of it; so a directory
 * that is pruned and set again in one call notifies of the differences alone.
 * When it returns 0 all changes are stored as a single sysdb_item_set() would
 * have stored them.
 *
 * @param conn     the connection
 * @param changes  in, may be null when count is 0
 * @param count    elements of changes
 * @param failed   out, may be null: on failure the index of the change that was refused, or count when it was
 *                 none of them; untouched on success
 *
 * Ownership: Copied in.
 * @return
 * - 0
 * - SYSDB_ERR_NOT_FOUND: nothing to delete
 * - SYSDB_ERR_CONFLICT: an item is not as expected
 * - SYSDB_ERR_NOT_SUPPORTED: the provider that is loaded is an older one
 * - SYSDB_ERR_INVALID_ARG: a null pointer or an unknown operation
 * - or a code of sysdb_item_set; on any failure the database is as it was
 */
PLATFORM_API cerrno sysdb_apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSDB_CHANGES_H */
