/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_SYSDB_H
#define PLATFORM_SYSDB_H

/**
 * @file
 * @brief Client interface of the system database.
 *
 * Typed items in a tree, listed one level at a time, with notifications of
 * changes.
 *
 * 1. Paths. A connection is bound at an absolute directory, all other paths
 *    are relative to it. A directory's path ends in '/'. Components are
 *    not empty and hold no control characters. Names that consist of "0x" and
 *    one to eight hexadecimal digits (optionally followed by ',' and more)
 *    sort as numbers, all others bytewise.
 * 2. Trees. "/cfg/" is configuration and survives a reboot; "/oper/" is
 *    operational data and does not.
 * 3. Directories exist as long as something is below them. To make a directory
 *    that exists while it is empty, set an item of type SYSDB_TYPE_DIRECTORY
 *    whose path ends in '/'.
 * 4. Results. 0 is success; SYSDB_ERR_NOT_FOUND is the only code after which a
 *    search continues. SYSDB_ERR_LIB_ABSENT means that no provider could be
 *    loaded; the next call tries again. cerr_strerror() has the text of every
 *    code. On failure no output is written, except where a function says so.
 * 5. Threads. Any thread may make any call. Notification callbacks run only
 *    inside the event manager's dispatch or inside sysdb_dispatch(), with no
 *    lock held, so a callback may make any call.
 * 6. fork. The child may use the connections that it inherited. Registered
 *    notifications remain with the parent; the child registers its own.
 */

#include "aaa/method_lists.h"
#include "aaa/result_codes.h"
#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint64_t sysdb_conn_t; /**< connection handle, 0 = none */
typedef void *sysdb_list_t;

/* Data types. Any other number is stored and compared unchanged; its value is not checked. */
#define SYSDB_TYPE_ANY       0u /**< only as an expected type: any type */
#define SYSDB_TYPE_U32       1u /**< four bytes, host order */
#define SYSDB_TYPE_STRING    3u /**< text, its NUL is part of the length */
#define SYSDB_TYPE_TUPLE     5u /**< made by sysdb_tuple_pack() */
#define SYSDB_TYPE_DIRECTORY 0xFFFFFFFDu

/* Bind flags. A shared connection is kept for the life of the process, which may only read: it makes no
 * database. Otherwise it behaves as a private one. */
#define SYSDB_BIND_PRIVATE 0u
#define SYSDB_BIND_SHARED  2u
/** With SYSDB_BIND_PRIVATE: makes nothing where there is no database; for tools that only read. */
#define SYSDB_BIND_EXISTING 8u

#define SYSDB_NAME_SIZE 50u /**< bytes of a name in a tuple, NUL included */

/* Codes of the system database besides those of aaa/result_codes.h. */
#define SYSDB_ERR_INVALID_ARG     0x80819000u /**< null pointer, unknown flag */
#define SYSDB_ERR_BAD_HANDLE      0x80819800u /**< unknown or stale connection or notification */
#define SYSDB_ERR_BAD_PATH        0x8081a400u /**< empty part, control character, unknown tree, wrong end */
#define SYSDB_ERR_PATH_TOO_LONG   0x80819600u /**< the absolute path does not fit the provider's keys */
#define SYSDB_ERR_TYPE_MISMATCH   0x80819400u /**< the item is of another type than expected */
#define SYSDB_ERR_BAD_VALUE       0x8081a600u /**< the value does not have the form of its type */
#define SYSDB_ERR_VALUE_TOO_LARGE 0x8081aa00u
#define SYSDB_ERR_FULL            0x80819a00u /**< no room left in the database or on its file system */
#define SYSDB_ERR_CORRUPT         0x8081a200u /**< the file is damaged, or is not a database of this system */
#define SYSDB_ERR_ACCESS          0x80819e00u /**< no permission for the files */
#define SYSDB_ERR_READ_ONLY       0x8081a000u /**< this process may read but not write */
#define SYSDB_ERR_STORAGE         0x80819c00u /**< directory that cannot be made, I/O error */
#define SYSDB_ERR_BUSY            0x8081a800u /**< a process keeps a lock or room, or all reader places */
#define SYSDB_ERR_NOMEM           0x80819200u
#define SYSDB_ERR_END_OF_LIST     0x40818a00u
#define SYSDB_ERR_CONNECTION_LOST 0x8081ac00u /**< the channel can no longer be used; bind again */

/* Of changes, where the configuration is that of a cluster. */
#define SYSDB_ERR_NO_MAJORITY      0x8081b200u /**< no majority of its servers answered; nothing is changed */
#define SYSDB_ERR_OUTCOME_UNKNOWN  0x8081b400u /**< no answer: changed or not; read again */
#define SYSDB_ERR_TOO_MANY_CHANGES 0x8081b600u /**< more than the servers take as one; nothing is changed */
#define SYSDB_ERR_NO_AGENT         0x8081b800u /**< this node's agent does not run, or cannot work */

/* ---- connections ---- */

/**
 * Binds a connection at an absolute directory.
 *
 * Where there is no database, a private connection makes one. A shared connection sees an empty one, which
 * its first change or watch makes.
 *
 * @param[out] conn  the handle, never 0 on success; untouched on failure, so that a handle preset to 0
 *                   remains 0
 * @param[in]  path  absolute, ends in '/'; the directory need not exist
 * @param[in]  flags SYSDB_BIND_PRIVATE, SYSDB_BIND_SHARED, or SYSDB_BIND_PRIVATE | SYSDB_BIND_EXISTING, which
 *                   an older provider does not know
 *
 * Ownership: *Caller frees* the handle, with _sysdb_unbind().
 *
 * @return
 * - 0: bound
 * - SYSDB_ERR_LIB_ABSENT: no provider, or the library that calls is being unloaded
 * - SYSDB_ERR_INVALID_ARG: a pointer is null, or a flag is unknown
 * - SYSDB_ERR_NOT_FOUND: with SYSDB_BIND_EXISTING, there is no database yet
 * - SYSDB_ERR_BAD_PATH, SYSDB_ERR_PATH_TOO_LONG: the path
 * - SYSDB_ERR_CORRUPT, SYSDB_ERR_ACCESS, SYSDB_ERR_STORAGE, SYSDB_ERR_BUSY, SYSDB_ERR_NOMEM: the database
 *   cannot be opened; a log line names the file
 */
PLATFORM_API cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags);

/**
 * Releases a connection with everything registered on it, and closes its
 * channel. Waits for a callback of the connection that runs on another thread.
 *
 * @param[in] conn the connection
 *
 * @return
 * - 0: released, or the handle is 0
 * - SYSDB_ERR_BAD_HANDLE: unknown or stale connection
 */
PLATFORM_API cerrno _sysdb_unbind(sysdb_conn_t conn);

/**
 * Gives a connection's channel id: a descriptor that polls readable when
 * sysdb_dispatch() has something to do. Do not read or close it; it is valid as
 * long as the connection.
 *
 * @param[in]  conn the connection
 * @param[out] coid the channel id; untouched on failure
 *
 * @return
 * - 0: done
 * - SYSDB_ERR_BAD_HANDLE: unknown or stale connection
 * - SYSDB_ERR_INVALID_ARG: the output is null
 * - SYSDB_ERR_STORAGE: out of descriptors
 */
PLATFORM_API cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid);

/* ---- items ---- */

/**
 * Reads one item.
 *
 * @param[in]     conn     the connection
 * @param[in]     path     relative to the connection's directory
 * @param[in,out] datatype on entry the expected type or SYSDB_TYPE_ANY, on return the item's type; null means
 *                         SYSDB_TYPE_ANY
 * @param[out]    value    may be null when only existence is asked
 * @param[out]    length   bytes; a string's NUL is counted. May be null
 * @param[in]     flags    0
 *
 * Ownership: *Caller frees* *value, with free().
 *
 * @return
 * - 0: read
 * - SYSDB_ERR_NOT_FOUND: the item does not exist
 * - SYSDB_ERR_TYPE_MISMATCH: the item has another type; logged
 * - SYSDB_ERR_BAD_VALUE: the stored bytes do not fit their type (a number not of four bytes, a string
 *   without NUL, a truncated tuple); logged
 * - SYSDB_ERR_BAD_HANDLE: unknown or stale connection
 * - a code of _sysdb_bind()
 */
PLATFORM_API cerrno sysdb_item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value,
                                   uint32_t *length, uint32_t flags);

/**
 * Creates or replaces one item. When it returns 0 the item is stored: under
 * "/cfg/" it survives a loss of power. Setting the present type and value changes
 * nothing and notifies no one.
 *
 * @param[in] conn     the connection
 * @param[in] path     relative to the connection's directory
 * @param[in] datatype type of the value
 * @param[in] value    may be null when length is 0
 * @param[in] length   bytes; 4 for a number, NUL included for a string
 * @param[in] flags    0 or 1, both alike
 *
 * Ownership: *Copied in*.
 *
 * @return
 * - 0: stored
 * - SYSDB_ERR_BAD_VALUE: the value does not fit its type
 * - SYSDB_ERR_VALUE_TOO_LARGE, SYSDB_ERR_FULL, SYSDB_ERR_READ_ONLY
 * - a code of sysdb_item_get()
 *
 * On failure the item is unchanged.
 */
PLATFORM_API cerrno sysdb_item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value,
                                   uint32_t length, uint32_t flags);

#define SYSDB_DELETE_TREE 1u /**< the path is a directory: delete it with everything below */

/**
 * Deletes one item, or with SYSDB_DELETE_TREE a whole directory.
 *
 * @param[in] conn  the connection
 * @param[in] path  relative to the connection's directory
 * @param[in] flags 0 or SYSDB_DELETE_TREE
 *
 * @return
 * - 0: deleted
 * - SYSDB_ERR_NOT_FOUND: the item or directory does not exist
 * - a code of sysdb_item_set()
 */
PLATFORM_API cerrno sysdb_item_delete(sysdb_conn_t conn, const char *path, uint32_t flags);

/* ---- directories ---- */

/**
 * Lists the entries directly under a directory, as one consistent state.
 *
 * @param[in]  conn    the connection
 * @param[in]  path    relative; "" is the directory of the bind point
 * @param[in]  pattern "" for all, or a name pattern with '*' and '?'. null means ""
 * @param[out] count   entries; may be null
 * @param[out] list    the list; untouched on failure
 * @param[in]  flags   0
 *
 * Ownership: *Caller frees* the list, with sysdb_list_free().
 *
 * @return
 * - 0: listed. A directory that exists may have no entries; the bind point always exists
 * - SYSDB_ERR_NOT_FOUND: no such directory
 * - a code of sysdb_item_get()
 */
PLATFORM_API cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                               sysdb_list_t *list, uint32_t flags);

/**
 * Positions a list before its first entry, as a new list is.
 *
 * @param[in] list the list
 *
 * @return
 * - 0: done
 * - SYSDB_ERR_INVALID_ARG: the list is null
 */
PLATFORM_API cerrno sysdb_list_start(sysdb_list_t list);

/**
 * Gives the next entry of a list.
 *
 * @param[in]  list  the list
 * @param[out] name  relative to the listed directory; a directory's name ends in '/'. Null after the last
 *                   entry
 * @param[out] type  the item's type, or SYSDB_TYPE_DIRECTORY; may be null
 * @param[in]  flags 0
 *
 * Ownership: *Borrowed*: the name is valid until sysdb_list_free().
 *
 * @return
 * - 0: the outputs describe an entry
 * - SYSDB_ERR_END_OF_LIST: there are no more entries
 * - SYSDB_ERR_INVALID_ARG: a pointer is null
 */
PLATFORM_API cerrno sysdb_list_next(sysdb_list_t list, char **name, uint32_t *type, uint32_t flags);

/** Releases a list and its names. The list may be null. */
PLATFORM_API void sysdb_list_free(sysdb_list_t list);

/**
 * Tells whether a directory exists, and lists it.
 *
 * @param[in]  conn    as for sysdb_list()
 * @param[in]  path    as for sysdb_list()
 * @param[in]  pattern as for sysdb_list()
 * @param[out] count   entries; may be null
 * @param[out] list    the list, may be null; untouched on failure
 * @param[in]  flags   0
 * @param[in]  depth   0 or 1: one level
 *
 * Ownership and results as for sysdb_list().
 */
PLATFORM_API cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                               sysdb_list_t *list, uint32_t flags, uint32_t depth);

/**
 * Gives the last entry of a directory in listing order.
 *
 * @param[in]  conn  the connection
 * @param[in]  path  relative to the connection's directory
 * @param[out] name  as in sysdb_list_next()
 * @param[out] type  may be null
 * @param[in]  flags 0
 *
 * Ownership: *Caller frees* *name, with free().
 *
 * @return
 * - 0: the outputs describe the entry
 * - SYSDB_ERR_NOT_FOUND: the directory is empty or does not exist
 * - a code of sysdb_item_get()
 */
PLATFORM_API cerrno sysdb_directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type,
                                             uint32_t flags);

/* ---- notifications ---- */

#define SYSDB_EVENT_SET    2u /**< bit: the item was written */
#define SYSDB_EVENT_CREATE 3u /**< the item was written and did not exist before */
#define SYSDB_EVENT_DELETE 4u /**< bit: the item was deleted */

#define SYSDB_NOTIFY_CHANGES 1u /**< registration mode: changes from now on */
#define SYSDB_NOTIFY_INITIAL 2u /**< added to it: a first call with the present state */
#define SYSDB_NOTIFY_SINCE   4u /**< added to it: first the changes after a revision of the tree */

/**
 * Argument of a notification callback, valid during the call only. The first
 * eight bytes are those of a configuration event record.
 */
typedef struct sysdb_notification {
    uint32_t operation; /**< SYSDB_EVENT_SET, SYSDB_EVENT_CREATE or SYSDB_EVENT_DELETE */
    uint8_t pass_flags; /**< 0 */
    uint8_t reserved[3];
    uint64_t revision; /**< of the tree, when the value was read; grows with every change */
    const char *path;  /**< relative to the connection's bind point */
    const void *value; /**< null when deleted */
    uint32_t length;   /**< bytes */
    uint32_t datatype; /**< SYSDB_TYPE_DIRECTORY, see below, otherwise the item's type; SYSDB_TYPE_ANY with no
                               value when the stored bytes do not fit their type */
} sysdb_notification_t;

/**
 * Registers a callback for the changes of one item, or of everything below a
 * directory.
 *
 * No final state is lost after success: values read after the registration,
 * together with the callbacks that follow, are complete. Several changes of one
 * item since the last dispatch give one call, with the newest state; an item that
 * was created and deleted in between may be reported as deleted. A directory's
 * watcher that missed more changes than the provider remembers gets one call with
 * the directory's own path and the type SYSDB_TYPE_DIRECTORY: read everything
 * again.
 *
 * With SYSDB_NOTIFY_SINCE the changes after a revision, which an earlier callback has told, are reported at
 * the first dispatch as if the watch had been registered then. Providers remember a number of changes only.
 *
 * The callback is called when the connection's channel is dispatched: by the
 * event manager, when the channel id was returned from the up callback of a
 * connection of type EVENT_CONN_TYPE_SYSDB; otherwise by sysdb_dispatch().
 *
 * @param[in]  conn         the connection
 * @param[in]  path         relative to the connection; ends in '/' for a directory, "" for the bind point
 * @param[in]  events       SYSDB_EVENT_SET, SYSDB_EVENT_DELETE or both (6)
 * @param[in]  mode         SYSDB_NOTIFY_CHANGES, optionally with SYSDB_NOTIFY_INITIAL or SYSDB_NOTIFY_SINCE
 * @param[in]  callback     called as (notification, callback_arg, user_ctx); its result is not used
 * @param[in]  callback_arg passed to callback; may be null
 * @param[in]  zero7        0; the revision with SYSDB_NOTIFY_SINCE
 * @param[in]  user_ctx     passed to callback; may be null
 * @param[in]  zero9        0
 * @param[out] notification handle for sysdb_notification_unregister(); untouched on failure
 *
 * @return
 * - 0: registered
 * - SYSDB_ERR_INVALID_ARG: a pointer is null, or events or mode is unknown
 * - SYSDB_ERR_BAD_HANDLE: unknown or stale connection
 * - SYSDB_ERR_NOT_FOUND: with SYSDB_NOTIFY_SINCE, some changes after the revision are forgotten, or the
 *   tree has not reached it
 * - SYSDB_ERR_NOT_SUPPORTED: with SYSDB_NOTIFY_SINCE, the loaded provider is an older one
 * - a code of _sysdb_bind(): the path, or the run directory, which this process must be able to write
 */
PLATFORM_API cerrno _sysdb_register_notification(sysdb_conn_t conn, const char *path, uint32_t events,
                                                 uint32_t mode, aaa_notify_cb_t callback, void *callback_arg,
                                                 uint64_t zero7, void *user_ctx, uint64_t zero9,
                                                 uint64_t *notification);

/**
 * Removes a notification. It waits for a callback that runs on another thread;
 * after it has returned the callback is not called again.
 *
 * @param[in] conn         the connection
 * @param[in] notification the handle
 *
 * @return
 * - 0: removed, or the notification is 0: a record is released alike whether or not its registration
 *   succeeded
 * - SYSDB_ERR_BAD_HANDLE: unknown or stale connection or notification
 */
PLATFORM_API cerrno sysdb_notification_unregister(sysdb_conn_t conn, uint64_t notification);

/**
 * Calls the callbacks of a connection that have pending changes, and returns. A program without an event
 * manager polls the connection's channel id and calls this when it is readable:
 *
 *     sysdb_conn_to_coid(conn, &fd);
 *     struct pollfd ready = { fd, POLLIN, 0 };
 *     while (poll(&ready, 1, -1) >= 0)
 *         sysdb_dispatch(conn);
 *
 * A call when nothing is readable does nothing.
 *
 * @param[in] conn the connection
 *
 * @return
 * - 0: done
 * - SYSDB_ERR_BAD_HANDLE: unknown or stale connection
 * - SYSDB_ERR_CONNECTION_LOST: bind again
 * - a code of sysdb_item_get(): the database cannot be read; a later call reports the changes
 */
PLATFORM_API cerrno sysdb_dispatch(sysdb_conn_t conn);

/* ---- tuples ---- */

/**
 * Makes a tuple value from integers ("%d", 32 bits) and names ("%s", at most
 * SYSDB_NAME_SIZE bytes with their NUL, null counts as ""), in the order of the
 * format.
 *
 * Ownership: *Caller frees* *tuple, with free().
 *
 * @return
 * - 0: made
 * - SYSDB_ERR_INVALID_ARG: a pointer is null, or the format has another conversion
 * - SYSDB_ERR_BAD_VALUE: a name is too long
 * - SYSDB_ERR_NOMEM: no memory
 */
PLATFORM_API cerrno sysdb_tuple_pack(void **tuple, uint32_t *length, const char *format, ...);

/**
 * Tells whether bytes are a complete tuple.
 *
 * @param[in] tuple  the bytes, may be null
 * @param[in] length number of bytes
 *
 * @return
 * - 0: they are
 * - SYSDB_ERR_BAD_VALUE: they are not
 */
PLATFORM_API cerrno sysdb_tuple_check(const void *tuple, uint32_t length);

/**
 * Gives the fields of a tuple as a format, such as "%d%d%s".
 *
 * Ownership: *Caller frees* the text, with free().
 *
 * @return the format, or null when the bytes are not a tuple or memory is exhausted
 */
PLATFORM_API char *sysdb_tuple_format(const void *tuple, uint32_t length);

/**
 * Unpacks a tuple by a format of "%d" (through an int32_t or uint32_t pointer)
 * and "%s" (into a char[50]).
 *
 * The tuple's fields must be those of the format, except that surplus leading
 * integers of the tuple are skipped: a method list for accounting has three
 * integers before the fields of all lists, and is read with either format.
 *
 * @return
 * - 0: all outputs are written
 * - -1: none is written; errno is EINVAL (a null pointer or an unknown conversion), EBADMSG (not a tuple, or
 *   truncated) or EPROTO (its fields are not those of the format)
 */
PLATFORM_API int tuple_unpack_mask(const void *tuple, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSDB_H */
