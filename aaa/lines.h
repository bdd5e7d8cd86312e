/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_LINES_H
#define AAA_LINES_H

/**
 * @file
 * @brief Terminal lines: their kind, a name for them, and prompted input.
 */

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds of line, as the platform's line service reports them. */
enum aaa_line_kind {
    AAA_LINE_CONSOLE = 0,
    AAA_LINE_TTY1 = 1, /**< terminal line, first numbering */
    AAA_LINE_TTY2 = 2, /**< terminal line, second numbering */
    AAA_LINE_AUX = 3,
    AAA_LINE_VTY = 4
};

#define AAA_READ_HIDDEN   0x1u /**< no echo; reads from the controlling terminal */
#define AAA_READ_LINEFEED 0x2u /**< line feed to standard output before the prompt */

/**
 * Turns a device file name into a name for the line.
 *
 * Drops the first character and replaces every '/' by '-': "/dev/vty1" becomes
 * "dev-vty1". An empty name gives an empty text.
 *
 * @param[in] device NUL-terminated device file name, may be null
 *
 * Ownership: *Caller frees* the result.
 *
 * @return the name, or null when @p device is null or memory is exhausted
 */
AAA_API char *aaa_util_convert_tty_name(char *device);

/**
 * Tells whether a device file is the console.
 *
 * @param[in] device NUL-terminated device file name, may be null
 * @return 1 when the platform reports that kind, 0 otherwise
 */
AAA_API int aaa_is_console(const char *device);

/**
 * Tells whether a device file is the auxiliary port.
 *
 * @param[in] device NUL-terminated device file name, may be null
 * @return 1 when the platform reports that kind, 0 otherwise
 */
AAA_API int aaa_is_aux(const char *device);

/**
 * Tells whether a device file is a virtual terminal.
 *
 * @param[in] device NUL-terminated device file name, may be null
 * @return 1 when the platform reports that kind, 0 otherwise
 */
AAA_API int aaa_is_vty(const char *device);

/**
 * Tells whether a device file is a terminal line of either numbering.
 *
 * Asks the platform a second time when the first answer is not the second numbering.
 *
 * @param[in] device NUL-terminated device file name, may be null
 * @return 1 when the platform reports one of the two kinds, 0 otherwise
 */
AAA_API int aaa_is_tty(const char *device);

/**
 * Prompts for one line of input, with a time limit.
 *
 * With AAA_READ_HIDDEN the line is read, without echo, character by character
 * from standard input after the controlling terminal has been switched over;
 * the settings are put back before the call returns. Ctrl-C or Ctrl-V drops
 * the line, backspace and delete erase, and the line ends with a line feed, a
 * carriage return, the end of the input or the character that does not fit any
 * more; input that follows that character is left for the next read. At most
 * @p len - 1 characters are stored, followed by a NUL. A process without a
 * terminal gets success and an empty @p buf, with the reason on standard error.
 *
 * Otherwise the line comes from the platform's line editor. Caution: a line of
 * exactly @p len characters is stored without a NUL. Give the function one
 * byte less than the zeroed buffer has.
 *
 * What was read from standard input is wiped in the buffer that the C library
 * keeps for it (with glibc); what follows there is kept.
 *
 * @param[in]  prompt    NUL-terminated text to show; null is refused
 * @param[out] buf       receives the input; zeroed first
 * @param[in]  len       size of @p buf in bytes, at least 1
 * @param[in]  timeout_s time limit in seconds, 0 for none
 * @param[in]  flags     AAA_READ_HIDDEN and AAA_READ_LINEFEED, or 0
 *
 * Threads: changes the process's SIGALRM action and its alarm clock, so one
 * thread at a time; other threads should block SIGALRM.
 *
 * On the hidden path the "tty" program is found through PATH. A set-user-ID
 * process runs /usr/bin/tty instead, with an environment of its own and the
 * rights of its caller. A process that is privileged in another way must have set
 * a trustworthy PATH.
 *
 * @return
 * - AAA_OK: input is in @p buf (empty after Ctrl-C, or without a terminal)
 * - AAA_ERR_INVALID_ARG: @p prompt or @p buf is null, or @p len is 0
 * - AAA_ERR_TIMEOUT: the time limit passed before anything was stored (hidden
 *   path), or before the line was complete (line editor)
 * - AAA_ERR_INVALID_CLIENT_DATA: the line editor gave no line, an empty one, a
 *   cancelled one, or one longer than @p len
 * - AAA_ERR_OS: the line editor could not be started
 * - an errno value, or a code of the line editor: the terminal could not be
 *   opened or switched over, or the editor refused its settings
 */
AAA_API cerrno aaa_util_read_input(const char *prompt, char *buf, uint32_t len, uint32_t timeout_s,
                                   uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif /* AAA_LINES_H */
