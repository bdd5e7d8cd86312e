/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CONTROL_H
#define PLATFORM_CONTROL_H

/**
 * @file
 * @brief Controls of the host platform for Linux.
 *
 * Tracing at run time, log lines with fields, the mutexes that threads wait for, the method lists of
 * lines, and the master keys of the password cipher. The library calls none of
 * it; it is for daemons, tools and debuggers. Every function may be called from
 * any thread.
 */

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- tracing ---------------------------------------------------------------- */

/** Debug flags run from 0 to AAA_PLATFORM_DEBUG_FLAGS - 1; aaa/debug_flags.h names them. */
#define AAA_PLATFORM_DEBUG_FLAGS 11u

/**
 * Switches one debug flag on or off in this process.
 *
 * @param[in] flag debug flag
 * @param[in] on   non-zero = on
 *
 * @return
 * - 0: done
 * - 0xa2580e00: no such flag, nothing changed (the catalog message about it is logged)
 */
PLATFORM_API cerrno aaa_platform_debug_set(uint32_t flag, int on);

/**
 * Replaces the set of flags that are on.
 *
 * @param[in] list areas as in the environment variable AAA_DEBUG: numbers, ranges ("1-3"), area names
 *                 ("avlist"), "all", "none", separated by commas or blanks; may be null = none
 *
 * @return
 * - 0: done
 * - 0xa2580e00: a word names no flag or area; the other words have taken effect
 */
PLATFORM_API cerrno aaa_platform_debug_set_areas(const char *list);

/** Gives the flags that are on, as a mask with bit n for flag n. */
PLATFORM_API uint32_t aaa_platform_debug_mask(void);

/**
 * Gives the name of a flag's area.
 *
 * Ownership: *Borrowed*, a constant.
 *
 * @return the name, or null when the flag does not exist
 */
PLATFORM_API const char *aaa_platform_debug_area(uint32_t flag);

/* ---- fields of log lines --------------------------------------------------- */

/** A field of a log line, for journals that keep fields apart from the text. */
typedef struct aaa_platform_log_field {
    const char *name;  /**< capital letters, digits and underscores, beginning with a letter: "AAA_USER" */
    const char *value; /**< any text; null: the field is left out */
} aaa_platform_log_field_t;

/**
 * Logs one catalog message as kel_errmsg() does, with fields.
 *
 * The systemd journal gets the fields next to the text, other logs the text only.
 *
 * @param[in] record   the catalog record (kel_msg_rec_t), whose format is not used; null is reported as an
 *                     error
 * @param[in] severity syslog level
 * @param[in] fields   the fields; may be null when count is 0. Those with other names are left out
 * @param[in] count    number of fields
 * @param[in] text     the text; may be null = "(no text)"
 */
PLATFORM_API void aaa_platform_log(const void *record, uint32_t severity,
                                   const aaa_platform_log_field_t *fields, uint32_t count, const char *text);

/**
 * Takes a log line that is about to be written, whatever AAA_LOG says: a tool makes it a part of its
 * messages.
 *
 * The platform does not define this function. A program that does is called with each line from the first
 * load hook on, before main() and before its constructors. Traces are not concerned.
 *
 * It is called on the thread that logs, which may be one of the library or of the platform, and from a signal
 * handler if that logs. It must not log, wait, allocate or enter the loader, and must preserve errno.
 *
 * @param[in] severity syslog level
 * @param[in] line     "%FACILITY-CATEGORY-SEVERITY-MNEMONIC : text", without a line feed; borrowed for the
 *                     call
 * @param[in] length   bytes of line, which a NUL follows
 *
 * @return
 * - non-zero: taken, and not written to the log
 * - 0: it is written
 */
int32_t aaa_program_take_log(uint32_t severity, const char *line, uint32_t length);

/* ---- system database --------------------------------------------------------- */

/**
 * Says why this process has no provider of the system database, for the code SYSDB_ERR_LIB_ABSENT.
 *
 * The text names the file, and the variable AAA_SYSDB_PROVIDER if that names it: "AAA_SYSDB_PROVIDER names
 * /x/libsysdb.so: No such file or directory".
 *
 * @param[out] out  the text, cut to size - 1 bytes; may be null when size is 0. "" when a provider is loaded
 * @param[in]  size bytes of out
 *
 * @return the length of the whole text; 0 when a provider is loaded
 */
PLATFORM_API uint32_t aaa_platform_sysdb_fault(char *out, uint32_t size);

/* ---- waiting threads ---------------------------------------------------------- */

/** One thread that waits for a mutex. */
typedef struct aaa_platform_mutex_wait {
    int32_t thread;     /**< thread id, as gettid() gives it */
    int32_t line;       /**< source line of the wait */
    const void *mutex;  /**< address of the mutex, not to be dereferenced */
    uint64_t waited_ms; /**< how long it has been waiting, in milliseconds */
    char function[64];  /**< name of the waiting function, cut to 63 characters */
} aaa_platform_mutex_wait_t;

/**
 * Lists the threads of this process that wait for a mutex of the library.
 *
 * @param[out] out      array to fill, may be null when capacity is 0
 * @param[in]  capacity elements in out
 *
 * @return the number of waiting threads. It may exceed capacity; only capacity elements are filled then. A
 * thread that begins or ends its wait during the call may be missing.
 */
PLATFORM_API uint32_t aaa_platform_mutex_waits(aaa_platform_mutex_wait_t *out, uint32_t capacity);

/* ---- method lists of lines ------------------------------------------------------ */

/** Kind of a row that applies to every kind of request. */
#define AAA_PLATFORM_LINE_EVERY_KIND 3u

/** One row of the file that says which method list applies on which lines. */
typedef struct aaa_platform_line_rule {
    uint32_t number; /**< line of the file, from 1 */
    uint32_t kind;   /**< 0 authentication, 1 authorization, 2 accounting, or AAA_PLATFORM_LINE_EVERY_KIND */
    const char *pattern;   /**< shell pattern for the names of lines; null in a defective row that has none */
    const char *list_name; /**< the method list; null in a defective row that has none */
    const char *defect;    /**< null, or why the row is not used; kind is then meaningless */
} aaa_platform_line_rule_t;

/** Called with each row, borrowed for the call; non-zero ends the walk. */
typedef int32_t (*aaa_platform_line_rule_fn)(const aaa_platform_line_rule_t *rule, void *context);

/**
 * Walks the rows in the order in which find_method_for_line() reads them:
 * the first that applies decides.
 *
 * @param[in] visit   called with each row, defective ones included
 * @param[in] context handed to visit; may be null
 *
 * @return
 * - 0: done, or there is no file
 * - 0xa2580200: visit is null
 * - 0xa2571600: the file cannot be used (a log line says why), and requests that name no list fail with that
 *   code
 */
PLATFORM_API cerrno aaa_platform_line_rules(aaa_platform_line_rule_fn visit, void *context);

/**
 * Tells whether a row decides for a kind of request on a line.
 *
 * @param[in] rule the row
 * @param[in] kind 0 authentication, 1 authorization, 2 accounting
 * @param[in] line name of the line, with or without "/dev/"
 *
 * @return
 * - 1: it does
 * - 0: it does not, is defective, or an argument is null
 */
PLATFORM_API int aaa_platform_line_rule_applies(const aaa_platform_line_rule_t *rule, uint32_t kind,
                                                const char *line);

/**
 * Gives the path of the file of rows that this process uses.
 *
 * Ownership: *Borrowed*, until the environment changes.
 */
PLATFORM_API const char *aaa_platform_line_rules_path(void);

/* ---- master keys ------------------------------------------------------------- */

/** Largest number of generations in a file of master keys. */
#define AAA_PLATFORM_MASTER_KEYS_MAX 100u

/** One generation of the master key, without the key. */
typedef struct aaa_platform_master_key {
    uint32_t generation; /**< 0 to 99, the two digits that begin a sealed key */
    uint32_t newest;     /**< 1: new keys are sealed with it; else 0 */
    int64_t created;     /**< seconds since 1970-01-01, 0 = not recorded */
} aaa_platform_master_key_t;

/**
 * Creates a file of master keys that holds one random key, generation 1.
 *
 * Its mode is 0600. At the usual path, /etc/aaa/master.keys, the group aaad may also read it, if there is
 * one: that of the user as whom the service runs.
 *
 * @param[in] path file to create, in an existing directory; null = the file that the cipher uses
 *
 * @return
 * - 0: done
 * - 0xa2581200: the file exists already and is unchanged
 * - EBUSY: another process has locked the directory for 5 seconds
 * - another errno value: it cannot be written, and no file remains; or its directory cannot be synced to the
 *   disk, and the file is there (a log line says which)
 */
PLATFORM_API cerrno aaa_platform_master_keys_create(const char *path);

/**
 * Adds a new random master key, with which keys are sealed from then on. Keys
 * sealed earlier remain readable: earlier generations are kept. The file
 * is replaced as a whole; processes see the old one or the new one.
 *
 * @param[in]  path       the file; null = the file that the cipher uses
 * @param[out] generation the new generation; may be null; untouched on failure
 *
 * @return
 * - 0: done
 * - 0xa2581000: the file is missing or cannot be used (a log line says why)
 * - 0xa2581400: the next number is in use
 * - EBUSY: another process has locked the directory for 5 seconds
 * - another errno value: the file cannot be written
 *
 * On failure the file is unchanged, except when its directory cannot be synced to the disk: a log line says
 * so then.
 */
PLATFORM_API cerrno aaa_platform_master_keys_rotate(const char *path, uint32_t *generation);

/**
 * Removes a generation of the master key. Keys sealed with it cannot be opened
 * afterwards; seal them again first. The newest generation cannot be removed.
 * The file is replaced as a whole, as by a rotation, and concurrent changes are
 * made one after the other.
 *
 * @param[in] path       the file; null = the file that the cipher uses
 * @param[in] generation the generation to remove
 *
 * @return
 * - 0: done
 * - 0xa2581000: the file is missing or cannot be used (a log line says why)
 * - 0xa2581600: there is no such generation
 * - 0xa2581800: it is the newest
 * - EBUSY: another process has locked the directory for 5 seconds
 * - another errno value: the file cannot be written
 *
 * On failure the file is unchanged, except when its directory cannot be synced to the disk: a log line says
 * so then.
 */
PLATFORM_API cerrno aaa_platform_master_keys_retire(const char *path, uint32_t generation);

/**
 * Lists the generations of a file of master keys, oldest first.
 *
 * @param[in]  path     the file; null = the file that the cipher uses
 * @param[out] out      array to fill; may be null when capacity is 0
 * @param[in]  capacity elements in out
 * @param[out] count    generations in the file, which may be more than capacity
 *
 * @return
 * - 0: done
 * - 0xa2581000: the file is missing or cannot be used
 * - 0xa2580200: an argument is null
 *
 * On failure the outputs are untouched.
 */
PLATFORM_API cerrno aaa_platform_master_keys_list(const char *path, aaa_platform_master_key_t *out,
                                                  uint32_t capacity, uint32_t *count);

/**
 * Tells whether a file of master keys holds the number of its keys and their checksum. A file without them,
 * as earlier versions wrote it, is used too; but if it is cut at the end of a line, that is not noticed. A
 * rotation writes them.
 *
 * @param[in]  path    the file; null = the file that the cipher uses
 * @param[out] checked 1 or 0; untouched on failure
 *
 * @return
 * - 0: done
 * - 0xa2581000: the file is missing or cannot be used
 * - 0xa2580200: checked is null
 */
PLATFORM_API cerrno aaa_platform_master_keys_checked(const char *path, uint32_t *checked);

/**
 * Gives the path of the file of master keys that the cipher of this process uses.
 *
 * Ownership: *Borrowed*, until the environment changes.
 */
PLATFORM_API const char *aaa_platform_master_keys_path(void);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CONTROL_H */
