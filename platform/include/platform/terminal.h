/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_TERMINAL_H
#define PLATFORM_TERMINAL_H

/**
 * @file
 * @brief Terminal and line services, and the line editor.
 *
 * A "line" is a user's terminal device. Called by threads of the program.
 */

#include "aaa/credentials.h"
#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- lines --------------------------------------------------------------------- */

/** Details of a line. The library reads the first field only. */
typedef struct tty_details {
    uint32_t kind;      /**< 0 console, 1 and 2 tty, 3 aux, 4 vty (enum aaa_line_kind) */
    uint8_t rest[1020]; /**< the host's */
} tty_details_t;

/**
 * Tells what kind of line a device is.
 *
 * @param[in]  zero    0
 * @param[in]  device  name of the device, with or without "/dev/"; may be null
 * @param[out] details zeroed by the caller; on failure its contents are not used
 *
 * @return
 * - 0: details filled
 * - any other value: the device is not a line, or its kind is not known
 */
PLATFORM_API int32_t tty_details_from_device_file(uint32_t zero, const char *device, tty_details_t *details);

/**
 * Gives the method list that is configured for the caller's line.
 *
 * Called while a request is composed for which the program names no list.
 *
 * @param[in]  kind      0 authentication, 1 authorization, 2 accounting
 * @param[out] list_name the list's name; null on entry and on failure, and when the line has none, in which
 *                       case "default" is used
 *
 * Ownership: *Caller frees* *list_name.
 *
 * @return
 * - 0: done
 * - 0x22570e00: the process has no controlling terminal (ignored for services 16 and 24, and in authorization
 *   for option 69)
 * - any other code: the composition fails with it
 */
PLATFORM_API cerrno find_method_for_line(uint32_t kind, char **list_name);

/**
 * Fills line_category, line_detail and line_detail2 of a credential record from
 * its tty_mnemonic, for a trace. Both details must end in NUL. Nothing else of
 * the record may be changed.
 *
 * @param[in,out] cred the record; its tty_mnemonic may be null
 *
 * @return not used
 */
PLATFORM_API cerrno aaa_util_check_linetype(aaa_usercred_t *cred);

/**
 * Gives the remote address of the caller's line as numeric text.
 *
 * @param[out] buffer the text. On success it becomes the remote address of the caller's credential record, on
 *                    failure the library frees it
 * @param[in]  size   size of the buffer, 46: room for any address with its NUL
 *
 * @return
 * - 0: done
 * - any other code: the line has no remote address, or it is not known; the request is then sent without one
 */
PLATFORM_API cerrno aaa_util_find_line_remote_addr(char *buffer, uint32_t size);

/* ---- line editor ---------------------------------------------------------------- */

/**
 * Makes a line editor on standard input and output.
 *
 * Ownership: *Caller frees*, with getline_free().
 *
 * @return the handle, or null: the read then ends with AAA_ERR_OS
 */
PLATFORM_API void *getline_init(void);

/**
 * Sets an option of the editor. Called for the options 4, 2, 3, 5, 6 and 7, in
 * this order, each with a four-byte 0; their meaning is the editor's. The first
 * non-zero result ends the read and is its result.
 *
 * @param[in] handle the editor
 * @param[in] option option number
 * @param[in] size   size of the value, 4
 * @param[in] value  the value; *Copied in*
 *
 * @return
 * - 0: done
 * - an errno value: on this host EINVAL, for an unknown option, another size or a null pointer
 */
PLATFORM_API cerrno getline_configure(void *handle, uint32_t option, uint32_t size, const void *value);

/**
 * Lets signals end a read. Called after the time limit's alarm has been started
 * and before the read.
 *
 * On this host only the expiry of a running alarm ends the read, in any thread
 * and regardless of the thread that gets the signal; without an alarm, any caught
 * signal ends it.
 *
 * @param[in] handle the editor, may be null (nothing is done)
 */
PLATFORM_API void gl_ret_on_eintr_enable(void *handle);

/**
 * Reads one line. Called as (handle, "", "", &ok).
 *
 * Sets errno, which the library tests regardless of the result: EINTR when the
 * time limit (the process's alarm) has ended the read, which is reported as
 * AAA_ERR_TIMEOUT, and never EINTR otherwise. Terminal settings are
 * restored before it returns. Control-C cancels the line and must not end the
 * process.
 *
 * @param[in]     handle the editor
 * @param[in]     prompt text to show before the line
 * @param[in]     text   text that the line begins with
 * @param[in,out] ok     1 on entry; cleared when the user cancelled the line; may be null
 *
 * Ownership: *Borrowed* until the next read or getline_free().
 *
 * @return
 * - the line, with its line feed if it had one
 * - null: end of input, time limit, cancelled, or failure
 *
 * A null or empty line, or a cleared ok, is AAA_ERR_INVALID_CLIENT_DATA.
 */
PLATFORM_API char *qm_getline(void *handle, const char *prompt, const char *text, int *ok);

/**
 * Releases an editor and the last line, which is wiped.
 *
 * @param[in] handle the editor, may be null (nothing is done)
 */
PLATFORM_API void getline_free(void *handle);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_TERMINAL_H */
