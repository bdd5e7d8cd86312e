/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_SYSDB_H
#define PLATFORM_SYSDB_H

/**
 * @file
 * Client interface of the system database: typed items in a tree, listed one
 * level at a time, with notifications of changes.
 *
 * 1. Paths. A connection is bound at an absolute directory, all other paths
 *    are relative to it. A directory's path ends in '/'. Components are
 *    not empty and hold no control characters. Names that consist of "0x" and
 *    one to eight hexadecimal digits (optionally followed by ',' and more)
 *    sort as numbers, all others bytewise.
 * 2. Trees. "/cfg/" is configuration and survives a reboot; "/oper/" is
 *    operational data and does not.
 * 3. Directories exist as long as something is below them. One may also be
 *    made by hand, by setting an item of type SYSDB_TYPE_DIRECTORY whose path
 *    ends in '/'; it then exists while it is empty.
 * 4. Results. 0 is success; SYSDB_ERR_NOT_FOUND is the only code with which a
 *    search goes on. SYSDB_ERR_LIB_ABSENT means that no provider could be
 *    loaded; the next call tries again. The text of every code comes from
 *    cerr_strerror(). On failure no output is written, except where it says so.
 * 5. Threads. Any thread may make any call. Notification callbacks run only
 *    inside the event manager's dispatch or inside sysdb_dispatch(), with no
 *    lock held, so a callback may make any call.
 * 6. fork. The child may go on using the connections that it inherited.
 *    Registered notifications stay with the parent; a child that wants them
 *    registers its own.
 */

#include "aaa/method_lists.h"
#include "aaa/result_codes.h"
#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint64_t sysdb_conn_t; /**< connection handle, 0 = none */
typedef void    *sysdb_list_t;

/* Data types. Any other number is stored and compared as it is, its value is not looked into. */
#define SYSDB_TYPE_ANY       0u          /**< only as an expected type: whatever is there */
#define SYSDB_TYPE_U32       1u          /**< four bytes, host order */
#define SYSDB_TYPE_STRING    3u          /**< text, its NUL is part of the length */
#define SYSDB_TYPE_TUPLE     5u          /**< what sysdb_tuple_pack() makes */
#define SYSDB_TYPE_DIRECTORY 0xFFFFFFFDu

/* Bind flags. A shared connection and a private one behave alike; the flag tells readers of the code which
 * handles are kept for the life of the process. */
#define SYSDB_BIND_PRIVATE 0u
#define SYSDB_BIND_SHARED  2u

#define SYSDB_NAME_SIZE 50u /**< bytes of a name in a tuple, NUL included */

/* Codes of the system database besides those of aaa/result_codes.h. */
#define SYSDB_ERR_INVALID_ARG     0x80819000u /**< null pointer, unknown flag */
#define SYSDB_ERR_BAD_HANDLE      0x80819800u /**< connection or notification is not, or no longer, valid */
#define SYSDB_ERR_BAD_PATH        0x8081a400u /**< empty component, control character, unknown tree, wrong end */
#define SYSDB_ERR_PATH_TOO_LONG   0x80819600u /**< the absolute path does not fit the provider's keys */
#define SYSDB_ERR_TYPE_MISMATCH   0x80819400u /**< the item is of another type than expected */
#define SYSDB_ERR_BAD_VALUE       0x8081a600u /**< the value does not have the form that its type asks for */
#define SYSDB_ERR_VALUE_TOO_LARGE 0x8081aa00u
#define SYSDB_ERR_FULL            0x80819a00u /**< no room left in the database */
#define SYSDB_ERR_CORRUPT         0x8081a200u /**< damaged file, or a file of something else */
#define SYSDB_ERR_ACCESS          0x80819e00u /**< no permission for the files */
#define SYSDB_ERR_READ_ONLY       0x8081a000u /**< this process may read but not write */
#define SYSDB_ERR_STORAGE         0x80819c00u /**< directory missing and not to be made, disk full, I/O error */
#define SYSDB_ERR_BUSY            0x8081a800u /**< all reader places are taken */
#define SYSDB_ERR_NOMEM           0x80819200u
#define SYSDB_ERR_END_OF_LIST     0x40818a00u
#define SYSDB_ERR_CONNECTION_LOST 0x8081ac00u /**< the channel can no longer be used; bind again */

/* ---- connections ---- */

/**
 * Binds a connection at an absolute directory.
 *
 * @param conn   out, the handle, never 0 on success; untouched on failure, so that a handle preset to 0 stays 0
 * @param path   in, absolute, ends in '/'; the directory need not exist
 * @param flags  SYSDB_BIND_PRIVATE or SYSDB_BIND_SHARED
 *
 * Ownership: Caller frees the handle, with _sysdb_unbind().
 * @return
 * - 0
 * - SYSDB_ERR_LIB_ABSENT: no provider, or the library that calls is being unloaded
 * - SYSDB_ERR_INVALID_ARG, SYSDB_ERR_BAD_PATH, SYSDB_ERR_PATH_TOO_LONG
 * - SYSDB_ERR_CORRUPT, SYSDB_ERR_ACCESS, SYSDB_ERR_STORAGE, SYSDB_ERR_BUSY, SYSDB_ERR_NOMEM: the database cannot
 *   be opened; a log line names the file
 */
PLATFORM_API cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags);

/**
 * Releases a connection with everything registered on it, and closes its
 * channel. Waits for a callback of the connection that runs on another thread.
 *
 * @return
 * - 0: also for handle 0, which is nobody's
 * - SYSDB_ERR_BAD_HANDLE
 */
PLATFORM_API cerrno _sysdb_unbind(sysdb_conn_t conn);

/**
 * Tells a connection's channel id: a descriptor that polls readable when
 * sysdb_dispatch() has something to do. It is not to be read or closed, and
 * lives as long as the connection.
 *
 * @param conn  the connection
 * @param coid  out, untouched on failure
 *
 * @return 0, SYSDB_ERR_BAD_HANDLE, SYSDB_ERR_INVALID_ARG (null output), SYSDB_ERR_STORAGE (out of descriptors).
 */
PLATFORM_API cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid);

/* ---- items ---- */

/**
 * Reads one item.
 *
 * @param conn      the connection
 * @param path      in, relative to the connection's directory
 * @param datatype  in, the expected type or SYSDB_TYPE_ANY; out, the item's type. Null stands for SYSDB_TYPE_ANY
 * @param value     out, may be null when only existence is asked
 * @param length    out, bytes; a string's NUL is counted. May be null
 * @param flags     0
 *
 * Ownership: Caller frees *value with free().
 * @return
 * - 0
 * - SYSDB_ERR_NOT_FOUND
 * - SYSDB_ERR_TYPE_MISMATCH: another type is there; logged
 * - SYSDB_ERR_BAD_VALUE: the stored bytes do not fit their type (a number not of four bytes, a string without NUL,
 *   a truncated tuple); logged
 * - SYSDB_ERR_BAD_HANDLE, SYSDB_ERR_BAD_PATH, SYSDB_ERR_PATH_TOO_LONG, or a code of _sysdb_bind
 */
PLATFORM_API cerrno sysdb_item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value,
                                   uint32_t *length, uint32_t flags);

/**
 * Creates or replaces one item. When it returns 0 the item is stored: under
 * "/cfg/" it survives a loss of power. Setting what is already there, same
 * type and value, changes nothing and notifies nobody.
 *
 * @param conn      the connection
 * @param path      in, relative to the connection's directory
 * @param datatype  type of the value
 * @param value     in, may be null when length is 0
 * @param length    bytes; 4 for a number, NUL included for a string
 * @param flags     0 or 1, without difference
 *
 * Ownership: Copied in.
 * @return 0, SYSDB_ERR_BAD_VALUE, SYSDB_ERR_VALUE_TOO_LARGE, SYSDB_ERR_FULL, SYSDB_ERR_READ_ONLY, or a code of
 * sysdb_item_get; on failure the item is as it was.
 */
PLATFORM_API cerrno sysdb_item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value,
                                   uint32_t length, uint32_t flags);

#define SYSDB_DELETE_TREE 1u /**< the path is a directory: delete it with all that is below */

/**
 * Deletes one item, or with SYSDB_DELETE_TREE a whole directory.
 *
 * @return 0, SYSDB_ERR_NOT_FOUND when nothing was there, or a code of sysdb_item_set.
 */
PLATFORM_API cerrno sysdb_item_delete(sysdb_conn_t conn, const char *path, uint32_t flags);

/* ---- directories ---- */

/**
 * Lists the entries directly under a directory, as one consistent state.
 *
 * @param conn     the connection
 * @param path     in, relative; "" is the directory of the bind point
 * @param pattern  in, "" for all, or a name pattern with '*' and '?'. Null stands for ""
 * @param count    out, entries; may be null
 * @param list     out, untouched on failure
 * @param flags    0
 *
 * Ownership: Caller frees the list with sysdb_list_free().
 * @return
 * - 0: also with no entries, for a directory that exists, and always for the bind point itself
 * - SYSDB_ERR_NOT_FOUND: no such directory
 * - or a code of sysdb_item_get
 */
PLATFORM_API cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                               sysdb_list_t *list, uint32_t flags);

/** Positions a list before its first entry, where it also stands when it is new. Returns 0, SYSDB_ERR_INVALID_ARG. */
PLATFORM_API cerrno sysdb_list_start(sysdb_list_t list);

/**
 * Takes the next entry of a list.
 *
 * @param list   the list
 * @param name   out, relative to the listed directory; a directory's name ends in '/'. Null past the end
 * @param type   out, the item's type, or SYSDB_TYPE_DIRECTORY; may be null
 * @param flags  0
 *
 * Ownership: Borrowed, the name is valid until sysdb_list_free().
 * @return 0, SYSDB_ERR_END_OF_LIST, SYSDB_ERR_INVALID_ARG.
 */
PLATFORM_API cerrno sysdb_list_next(sysdb_list_t list, char **name, uint32_t *type, uint32_t flags);

/** Releases a list and its names. The list may be null. */
PLATFORM_API void sysdb_list_free(sysdb_list_t list);

/**
 * Asks whether a directory exists, and lists it.
 *
 * @param conn     as for sysdb_list()
 * @param path     as for sysdb_list()
 * @param pattern  as for sysdb_list()
 * @param count    out, entries; may be null
 * @param list     out, may be null; untouched on failure
 * @param flags    0
 * @param depth    0 or 1: one level
 *
 * Ownership and results as for sysdb_list().
 */
PLATFORM_API cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                               sysdb_list_t *list, uint32_t flags, uint32_t depth);

/**
 * Tells the last entry of a directory in listing order.
 *
 * @param conn   the connection
 * @param path   in, relative to the connection's directory
 * @param name   out, as in sysdb_list_next()
 * @param type   out, may be null
 * @param flags  0
 *
 * Ownership: Caller frees *name with free().
 * @return 0, SYSDB_ERR_NOT_FOUND for a directory that is empty or not there, or a code of sysdb_item_get.
 */
PLATFORM_API cerrno sysdb_directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type,
                                             uint32_t flags);

/* ---- notifications ---- */

#define SYSDB_EVENT_SET    2u /**< bit: the item was written */
#define SYSDB_EVENT_CREATE 3u /**< the item was written and was not there before */
#define SYSDB_EVENT_DELETE 4u /**< bit: the item is gone */

#define SYSDB_NOTIFY_CHANGES 1u /**< registration mode: changes from now on */
#define SYSDB_NOTIFY_INITIAL 2u /**< added to it: one call with the present state first */

/**
 * What a notification callback receives. Valid during the call only. The
 * first eight bytes are those of a configuration event record.
 */
typedef struct sysdb_notification {
    uint32_t    operation; /**< SYSDB_EVENT_SET, SYSDB_EVENT_CREATE or SYSDB_EVENT_DELETE */
    uint8_t     pass_flags; /**< 0 */
    uint8_t     reserved[3];
    uint64_t    revision; /**< of the tree, when the value was read; grows with every change */
    const char *path;     /**< relative to the connection's bind point */
    const void *value;    /**< null when deleted */
    uint32_t    length;   /**< bytes */
    uint32_t    datatype; /**< SYSDB_TYPE_DIRECTORY, see below, otherwise the item's type; SYSDB_TYPE_ANY with no
                               value when the stored bytes do not fit their type */
} sysdb_notification_t;

/**
 * Registers a callback for the changes of one item, or of everything below a
 * directory.
 *
 * From the moment of success on no final state is lost: what is read after
 * the registration, together with the callbacks that follow, is complete.
 * Several changes of one item that happened since the last dispatch are one
 * call, with the newest state; an item that came and went again in between may
 * be reported as deleted. When a directory's watcher has slept through more
 * changes than the provider remembers, it gets one call with the directory's
 * own path and the type SYSDB_TYPE_DIRECTORY: read everything again.
 *
 * @param conn          the connection
 * @param path          in, relative to the connection; ends in '/' for a directory, "" for the bind point
 * @param events        SYSDB_EVENT_SET, SYSDB_EVENT_DELETE or both (6)
 * @param mode          SYSDB_NOTIFY_CHANGES, optionally with SYSDB_NOTIFY_INITIAL
 * @param callback      called as (notification, callback_arg, user_ctx); its result is not used
 * @param callback_arg  handed to callback; may be null
 * @param zero7         0
 * @param user_ctx      handed to callback; may be null
 * @param zero9         0
 * @param notification  out, handle for sysdb_notification_unregister(); untouched on failure
 *
 * The callback is called when the connection's channel is dispatched: by the
 * event manager, when the channel id was returned from the up callback of a
 * connection of type EVENT_CONN_TYPE_SYSDB; otherwise by sysdb_dispatch().
 *
 * @return 0, SYSDB_ERR_INVALID_ARG, SYSDB_ERR_BAD_HANDLE, SYSDB_ERR_BAD_PATH, SYSDB_ERR_PATH_TOO_LONG, or a code of
 * _sysdb_bind (the watch is kept in the run directory, which this process must be able to write).
 */
PLATFORM_API cerrno _sysdb_register_notification(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                                                 aaa_notify_cb_t callback, void *callback_arg, uint64_t zero7,
                                                 void *user_ctx, uint64_t zero9, uint64_t *notification);

/**
 * Removes a notification. After it has returned the callback is not running
 * and will not be called again; it waits for one that runs on another thread.
 *
 * @return
 * - 0: also for notification 0, which is nobody's: a record whose registration failed is released in the same
 *   way as one that succeeded
 * - SYSDB_ERR_BAD_HANDLE: unknown connection or notification
 */
PLATFORM_API cerrno sysdb_notification_unregister(sysdb_conn_t conn, uint64_t notification);

/**
 * Calls the callbacks of a connection for which something has changed, and
 * returns. A program without an event manager polls the connection's channel
 * id and calls this when it is readable:
 *
 *     sysdb_conn_to_coid(conn, &fd);
 *     struct pollfd ready = { fd, POLLIN, 0 };
 *     while (poll(&ready, 1, -1) >= 0)
 *         sysdb_dispatch(conn);
 *
 * To call it when nothing is readable does no harm.
 *
 * @return 0, SYSDB_ERR_BAD_HANDLE, SYSDB_ERR_CONNECTION_LOST, or a code of sysdb_item_get when the database cannot
 * be read; the changes are then reported by a later call.
 */
PLATFORM_API cerrno sysdb_dispatch(sysdb_conn_t conn);

/* ---- tuples ---- */

/**
 * Makes a tuple value from integers ("%d", 32 bits) and names ("%s", at most
 * SYSDB_NAME_SIZE bytes with their NUL, null counts as ""), in the order of
 * the format.
 *
 * Ownership: Caller frees *tuple with free().
 * @return 0, SYSDB_ERR_INVALID_ARG (format), SYSDB_ERR_BAD_VALUE (name too long), SYSDB_ERR_NOMEM.
 */
PLATFORM_API cerrno sysdb_tuple_pack(void **tuple, uint32_t *length, const char *format, ...);

/** Tells whether bytes are a complete tuple: 0, or SYSDB_ERR_BAD_VALUE. */
PLATFORM_API cerrno sysdb_tuple_check(const void *tuple, uint32_t length);

/**
 * Tells which fields a tuple holds, as a format: "%d%d%s" and so on.
 *
 * Ownership: Caller frees the text with free(). Returns null for bytes that are no tuple.
 */
PLATFORM_API char *sysdb_tuple_format(const void *tuple, uint32_t length);

/**
 * Unpacks a tuple by a format of "%d" (through an int32_t or uint32_t
 * pointer) and "%s" (into a char[50]).
 *
 * The tuple must hold what the format asks for. A tuple that begins with more
 * integers than the format is taken from the last of them on: a method list
 * for accounting carries three integers in front of what all lists have, and
 * is read with either format.
 *
 * @return 0; otherwise -1 with errno EINVAL (null, unknown conversion), EBADMSG (not a tuple, or truncated),
 * EPROTO (its fields are not those of the format), and then no output is written.
 */
PLATFORM_API int tuple_unpack_mask(const void *tuple, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSDB_H */
