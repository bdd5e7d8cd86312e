/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_SYSDB_H
#define PLATFORM_SYSDB_H

#include "aaa/types.h"
#include "aaa/method_lists.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint64_t sysdb_conn_t; /* "64-bit sysdb connection handle", 0 = none */
typedef void    *sysdb_list_t;

#define SYSDB_TYPE_U32       1u
#define SYSDB_TYPE_STRING    3u
#define SYSDB_TYPE_TUPLE     5u
#define SYSDB_TYPE_DIRECTORY 0xFFFFFFFDu

#define SYSDB_BIND_SHARED  2u /* value passed for the two shared handles; its meaning is the platform's */
#define SYSDB_BIND_PRIVATE 0u /* value passed for temporary and per-registration connections */

/* Binds a connection at an absolute path that ends in '/'. Called as (&aaa_sgmap_sysdb_connid,
 * "/oper/aaa/gl/group-server/", 2), (&aaa_cfg_sysdb_connid, "/cfg/gl/aaa/", 2), (&tmp, server-list path, 0),
 * (&record.connection, "/cfg/gl/aaa/", 0). On success it stores a non-zero handle; on failure the library
 * relies on the handle staying 0 (it tests the handle, not only the code, on the next call). */
PLATFORM_API cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags);

/* Releases a connection. Must tolerate handle 0 (the index functions unbind the zero handle after a failed bind). The result is used only by aaa_mlist_change_unregister. */
PLATFORM_API cerrno _sysdb_unbind(sysdb_conn_t conn);

/* Channel id of a connection, stored as a signed 32-bit value through coid; 0 on success. The library
 * presets the output to -1 and returns it from the connection-up callback. */
PLATFORM_API cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid);

/* Reads one item, path relative to the connection. *datatype is the EXPECTED type on entry (1, 3 or 5): an
 * item of another type is a failure; 0 = any type (used by the entry-exists test). *value is null and *length 0 on entry; on success *value is a
 * heap block with the value (u32 in host order; string with NUL; opaque tuple) that the library releases
 * with free() - or, in aaa_util_lookup_sg_name, hands to its own caller, who free()s it - and *length its
 * size in bytes, NUL included. On failure nothing is allocated. 0x40818600 = no such item. flags is 0. */
PLATFORM_API cerrno sysdb_item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value, uint32_t *length, uint32_t flags);

/* Writes (creates or replaces) one item. Called as (conn, name item, 1, &number, 4, 1) and
 * (conn, number item, 3, name, strlen(name) + 1, 1). The value is copied. The last argument is always 1. */
PLATFORM_API cerrno sysdb_item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value, uint32_t length, uint32_t flags);

/* Deletes one item; 0x40818600 (or any failure) when it is absent. The last argument is always 0. */
PLATFORM_API cerrno sysdb_item_delete(sysdb_conn_t conn, const char *path, uint32_t flags);

/* Lists the entries directly under a directory. Called as (cfg, path, "", &count, &list, 0) with path ""
 * for the root of the bind point, and (tmp, "", "", &count, &list, 0). On success *count is the number of
 * entries (0 is legal) and *list a handle that the library releases with sysdb_list_free, also after a
 * FAILED call when a handle was stored. The index functions treat any failure as "no servers added yet";
 * the group-in-list search returns it, so an existing but empty directory must be success with count 0. */
PLATFORM_API cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count, sysdb_list_t *list, uint32_t flags);

/* Positions a list before its first entry; 0 on success. */
PLATFORM_API cerrno sysdb_list_start(sysdb_list_t list);

/* Next entry: its name RELATIVE to the listed directory and its type. Directories are reported with type
 * 0xFFFFFFFD and with a TRAILING SLASH in the name ("login/"): the recursive search builds the next path as
 * "%s%s" of path and name and lists that. Index directories are named by the ordinal ("0x1" or "0x1/", read
 * with sscanf "%x"). Listing order is the platform's; "the last listed entry" decides the next index. Past
 * the end: a failure code, or success with a null name (which stops the walk with 0). The name stays the
 * list's (valid until sysdb_list_free); the library does not free it. flags is 0. */
PLATFORM_API cerrno sysdb_list_next(sysdb_list_t list, char **name, uint32_t *type, uint32_t flags);

/* Releases a list handle and its names. */
PLATFORM_API void sysdb_list_free(sysdb_list_t list);

/* Does a directory exist: (tmp, "0x1/host,.../", "", &count, &list, 0, 1). 0 = it exists, and then the
 * library frees the list with sysdb_list_free. Any other code = it does not. */
PLATFORM_API cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count, sysdb_list_t *list, uint32_t flags, uint32_t depth);

/* Name of the last entry of a directory in NAME order ("sg_num_map/radius/" gives "0x3ea"; every number has
 * three hex digits so name order is number order). 0x40818600 = empty directory. Success may come with a
 * null name (the library answers AAA_ERR_SG_MAPPING). The name is a heap string that the library free()s. */
PLATFORM_API cerrno sysdb_directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type, uint32_t flags);

/* Registers a notification: (connection, path, 6, 1, callback, callback_arg, 0, user_ctx, 0, &handle). The
 * callback and both pointers pass through unchanged. On success the 64-bit handle is stored. */
PLATFORM_API cerrno _sysdb_register_notification(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode, aaa_notify_cb_t callback, void *callback_arg, uint64_t zero7, void *user_ctx, uint64_t zero9, uint64_t *notification);

/* Removes a notification; a failure keeps the connection. */
PLATFORM_API cerrno sysdb_notification_unregister(sysdb_conn_t conn, uint64_t notification);

/* Unpacks a tuple value (type 5) by format: "%d" stores a 32-bit integer through an int32_t/uint32_t
 * pointer, "%s" stores a NUL-terminated name of at most 50 bytes, NUL included, into a char[50]. Formats:
 * "%d%d%d%d%s%s%s%s" and "%d%d%d%d%d%d%d%s%s%s%s". 0 on success; otherwise failure with errno set (the
 * method-list code returns errno). No size is passed, so the platform itself must keep to 50 bytes. */
PLATFORM_API int tuple_unpack_mask(const void *tuple, const char *format, ...);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSDB_H */
