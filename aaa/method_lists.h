/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_METHOD_LISTS_H
#define AAA_METHOD_LISTS_H

/**
 * @file
 * @brief Method lists: lookup, verification, change notification.
 *
 * A method list names up to four ways of performing one AAA function for one
 * kind of service. It is stored as a tuple at FUNCTION/SERVICE/NAME below
 * "/cfg/gl/aaa/" in the system database, for example
 * "authentication/login/default". The functions read through the shared handle
 * aaa_cfg_sysdb_connid and bind it on first use; a database that is absent
 * gives SYSDB_ERR_LIB_ABSENT, a bind or read failure its own code.
 *
 * Threads: any; the shared handle is read and bound without a lock.
 */

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AAA_METHODS_WORDS 7 /**< words of a methods array; the first four hold methods, the rest are 0 */

/** A registration for change notification, filled by aaa_mlist_change_register(). */
typedef struct aaa_mlist_reg {
    uint64_t connection;   /**< private database connection, 0 when there is none */
    uint64_t notification; /**< handle of the notification */
} aaa_mlist_reg_t;

/** An event record in network byte order, as aaa_tform_event() receives it. */
typedef struct aaa_event_record {
    uint32_t word0;
    uint8_t keep4[4];
    uint32_t word8;
    uint32_t word12; /**< its low-order byte is 2 in the short form, which ends here (16 bytes) */
    uint8_t keep16[8];
    uint32_t word24; /**< long form: 16 bits, in the first two bytes */
    uint32_t word28; /**< long form: likewise */
} aaa_event_record_t;

/**
 * Called by the platform when a watched list changes, on the thread that
 * dispatches the connection's events.
 *
 * @param[in] notification the platform's description of the change, borrowed for the call
 * @param[in] callback_arg as registered
 * @param[in] user_ctx     as registered
 */
typedef int32_t (*aaa_notify_cb_t)(const void *notification, void *callback_arg, void *user_ctx);

/**
 * Tells whether a method list exists.
 *
 * @param[in] function_word "authentication", "authorization" or "accounting"
 * @param[in] service_word  "login", "commands", ...
 * @param[in] list_name     name of the list
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return
 * - AAA_OK: it exists
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_NOT_FOUND: it does not exist
 * - AAA_ERR_NOMEM: no memory for its path
 * - a code of the system database, also logged
 */
AAA_API cerrno aaa_util_lookup_methodlist(const char *function_word, const char *service_word,
                                          const char *list_name);

/**
 * Tells whether a method list exists and suits a service.
 *
 * Services 1 and 24 use "login" lists, 11 "ppp", 14, 15 and 31 "commands", 26
 * "plexa", 16 "login" for authentication and "api" otherwise. An
 * authentication list for service 16 may not hold the method "line".
 *
 * @param[in] function  0 authentication, 1 authorization, 2 accounting, 3 authorization_nacm
 * @param[in] service   service number
 * @param[in] list_name name of the list
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return
 * - AAA_OK: it exists and suits
 * - AAA_ERR_INVALID_ARG: @p list_name is null, the service uses no lists, or the list does not suit
 * - AAA_ERR_NOT_FOUND: it does not exist
 * - AAA_ERR_INVALID_METHOD or an errno value: it cannot be unpacked
 * - AAA_ERR_NOMEM: no memory for its path
 * - a code of the system database, also logged
 */
AAA_API cerrno aaa_util_verify_methodlist(int function, int service, const char *list_name);

/**
 * Reads the methods of a list, server groups replaced by their numbers.
 *
 * A missing default authentication list is supplied: method 2 (local) for
 * "authentication/ppp/default", an empty list for every other service.
 *
 * @param[in]  path        path of the list below "/cfg/gl/aaa/"
 * @param[out] methods_out receives an array of AAA_METHODS_WORDS words; a method 0 ends the list.
 *                         It is stored before the database is read, and is null again after a failure
 *
 * Ownership: *Caller frees* the array.
 *
 * @return
 * - AAA_OK: @p methods_out is the array
 * - AAA_ERR_INVALID_ARG: a pointer is null; the output is untouched
 * - AAA_ERR_NOMEM: no memory for the array
 * - AAA_ERR_INVALID_METHOD: the list is missing and is not for authentication, or cannot be unpacked
 * - SYSDB_ERR_NOT_FOUND: the authentication list is missing and is not a default list,
 *   or a server group that it names is not known
 * - AAA_ERR_SG_MAPPING: the stored number of a server group that it names is malformed
 * - an errno value (unpacking), or a code of the system database
 *
 * On every failure but AAA_ERR_INVALID_ARG the output is null.
 */
AAA_API cerrno lookup_methods(char *path, uint32_t **methods_out);

/**
 * Tells whether a name may be given to a method list.
 *
 * @param[in] name NUL-terminated name, may be null
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return 1 when every byte is printable ASCII (or the name is empty), 0 otherwise or when @p name is null
 */
AAA_API int aaa_is_name_valid(char *name);

/**
 * Asks to be told when a method list changes.
 *
 * Opens a private database connection at "/cfg/gl/aaa/" and registers for the
 * list's item. The path is built from the function's word, the service's word
 * for that function and the list name, cut at 99 characters.
 *
 * @param[in]  function            0 to 3; any other value watches a path at which nothing is stored
 * @param[in]  service             service number
 * @param[in]  list_name           name of the list
 * @param[in]  callback            called at every change; passed on unchanged
 * @param[in]  callback_arg        passed on unchanged
 * @param[in]  user_ctx            passed on unchanged
 * @param[out] registration_record receives connection and notification. A field
 *                                 whose step is not reached is not written: preset both to 0, so that
 *                                 a failed registration can be released
 *
 * Ownership: *Copied in*: list_name. *Borrowed* until aaa_mlist_change_unregister(): callback_arg, user_ctx.
 *
 * @return
 * - AAA_OK: registered
 * - AAA_ERR_INVALID_ARG: @p list_name or the record is null
 * - SYSDB_ERR_LIB_ABSENT: the database's client library is not installed
 * - a code of the system database. When the registration itself failed the
 *   connection stays open in the record: aaa_mlist_change_unregister() releases it
 *
 * Failures are traced under debug flag 5.
 */
AAA_API cerrno aaa_mlist_change_register(uint32_t function, uint32_t service, const char *list_name,
                                         aaa_notify_cb_t callback, void *callback_arg, void *user_ctx,
                                         aaa_mlist_reg_t *registration_record);

/**
 * Undoes aaa_mlist_change_register(). The record's fields are not cleared.
 *
 * A record whose registration failed is released in the same way.
 *
 * @param[in] registration_record the registration
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return
 * - AAA_OK: notification and connection are released
 * - AAA_ERR_INVALID_ARG: the record is null
 * - SYSDB_ERR_LIB_ABSENT: the connection could not be released, the client library has gone
 * - a code of the system database; when the notification could not be released the connection is kept
 */
AAA_API cerrno aaa_mlist_change_unregister(aaa_mlist_reg_t *registration_record);

/**
 * Converts a received event record to host byte order, in place.
 *
 * The record has 32 bytes, or 16 in the short form. Bytes 4 to 7 and 16 to 23 are not touched.
 *
 * @param[in,out] event address of the record's address; the address itself is not changed
 *
 * Ownership: *Borrowed*; the result is the caller's record.
 *
 * @return the record, or null when @p event or the record's address is null
 */
AAA_API aaa_event_record_t *aaa_tform_event(aaa_event_record_t **event);

#ifdef __cplusplus
}
#endif

#endif /* AAA_METHOD_LISTS_H */
