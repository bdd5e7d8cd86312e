/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_LOGGING_H
#define PLATFORM_LOGGING_H

/**
 * @file
 * Catalog logging, for operators, and debug tracing, for developers. All
 * functions but the two that start and end tracing are called from any thread,
 * the worker included, and must neither enter the loader nor change errno.
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
 * passes, the others are held back. The 28 bytes behind it belong to the
 * logging service and start as zeros; records of several threads may share them.
 *
 * Records and limits live in the library; nothing may refer to them after the
 * call.
 *
 * @param record   the record; null is logged as the mistake it is
 * @param severity syslog level, always the record's own: 3, 4 or 7
 * @param ...      arguments of the record's format; the library passes "(null)"
 *                 instead of a null text
 */
PLATFORM_API void kel_errmsg(const void *record, uint32_t severity, ...);

/**
 * Writes one trace line if the flag is on.
 *
 * Called unconditionally at most places, so a flag that is off must cost next to
 * nothing. Texts have no line feed at their end, except for a few of session
 * filling and of notifications, and may hold some inside. The library's SIGALRM
 * handler traces (flag 5, one number), between a read and the look at errno.
 *
 * @param flag   debug flag (aaa/alloc.h names them); the list printer passes on
 *               what its caller gives, so any number may come
 * @param format printf format
 */
PLATFORM_API void aaa_debug(uint32_t flag, const char *format, ...);

/**
 * Tells whether a flag is on. Asked before traces whose arguments cost something;
 * of a host without aaa_debug_word() also by every addition to a list. So: a load
 * and a test, no lock.
 *
 * @param flag debug flag, any number
 * @return non-zero: on; 0: off, or no such flag
 */
PLATFORM_API int aaa_debugging(uint32_t flag);

/**
 * Tells where the flags stand, for callers that ask at every turn: with the word
 * at hand, an addition to a list costs two loads and a test, and no call.
 *
 * Optional: of a host without this function, and of a program with an
 * aaa_debugging() of its own, the library asks aaa_debugging(). The library calls
 * it once, while it is being loaded.
 *
 * @param debugging the aaa_debugging() that the caller is bound to
 * @return the word that this host's aaa_debugging() answers from, bit N for flag
 *         N: it stays where it is while the host is loaded and changes at any
 *         time, so it is read atomically; null when debugging is not this host's
 */
PLATFORM_API const uint32_t *aaa_debug_word(int (*debugging)(uint32_t flag));

/**
 * Starts tracing. Called by the loading thread, after the result codes have been
 * registered.
 *
 * @return 0: started; a code: it is logged and loading goes on
 */
PLATFORM_API cerrno aaa_debug_init(void);

/**
 * Ends tracing: no trace is written afterwards, until the next start. Last call
 * of an unload, by the unloading thread, also after other steps have failed.
 */
PLATFORM_API void aaa_debug_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_LOGGING_H */
