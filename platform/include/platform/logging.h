/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_LOGGING_H
#define PLATFORM_LOGGING_H

/**
 * @file
 * @brief Catalog logging, for operators, and debug tracing, for developers.
 *
 * All functions but the two that start and end tracing are called from any
 * thread, the worker included, and must neither enter the loader nor change
 * errno.
 */

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Logs one catalog message.
 *
 * The record (kel_msg_rec_t of aaa/result_codes.h) gives facility, category,
 * mnemonic, message number and format, and points to a limit record or to null.
 * A limit's first word is the period in seconds: within one period one message
 * passes, the others are held back. The 28 bytes after it belong to the
 * logging service and start as zeros; records of several threads may share
 * them.
 *
 * Records and limits live in the library; nothing may refer to them after the
 * call. Arguments may be texts of users and peers, so a host must not let them
 * begin another line or a control sequence. It must not write into a file that
 * happens to be descriptor 2 in a process without standard error.
 *
 * @param[in] record   the record; null is reported as an error
 * @param[in] severity syslog level, always the record's own: 3, 4 or 7
 * @param[in] ...      arguments of the record's format; the library passes "(null)" instead of a null text
 */
PLATFORM_API void kel_errmsg(const void *record, uint32_t severity, ...);

/**
 * Writes one trace line if the flag is on.
 *
 * Called unconditionally at most places, so a flag that is off must cost next
 * to nothing. Texts have no trailing line feed, except for a few of session
 * filling and of notifications, and may contain line feeds. The library's SIGALRM
 * handler traces (flag 5, one number) between a read and the test of errno.
 *
 * @param[in] flag   debug flag (aaa/debug_flags.h names them); the list printer passes on its caller's
 *                   number, which may be any
 * @param[in] format printf format
 */
PLATFORM_API void aaa_debug(uint32_t flag, const char *format, ...);

/**
 * Tells whether a flag is on. Called before traces whose arguments are costly,
 * and, on a host without aaa_debug_word(), by every addition to a list. It should
 * be a load and a test, without a lock.
 *
 * @param[in] flag debug flag, any number
 *
 * @return
 * - non-zero: on
 * - 0: off, or no such flag
 */
PLATFORM_API int aaa_debugging(uint32_t flag);

/**
 * Gives the address of the flags, for callers that test them often: an addition
 * to a list then costs two loads and a test instead of a call.
 *
 * Optional: without this function, and in a program that defines its own
 * aaa_debugging(), the library calls aaa_debugging(). The library calls this
 * function once, while it is being loaded.
 *
 * @param[in] debugging the aaa_debugging() that the caller is bound to
 *
 * @return
 * - the word that this host's aaa_debugging() reads, bit N for flag N. Its address does not change while the
 *   host is loaded; its value may change at any time, so it is read atomically
 * - null: debugging is not this host's function
 */
PLATFORM_API const uint32_t *aaa_debug_word(int (*debugging)(uint32_t flag));

/**
 * Starts tracing. Called by the loading thread, after the result codes have
 * been registered.
 *
 * @return
 * - 0: started
 * - a code: it is logged and loading goes on
 */
PLATFORM_API cerrno aaa_debug_init(void);

/**
 * Ends tracing: no trace is written until the next start. Last call of an
 * unload, by the unloading thread, also after other steps have failed.
 */
PLATFORM_API void aaa_debug_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_LOGGING_H */
