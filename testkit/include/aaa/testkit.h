/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_TESTKIT_H
#define AAA_TESTKIT_H

/**
 * @file
 * @brief Test kit: a scripted host platform for tests of programs that use libaaautil.
 *
 * A test program that is linked with the kit (CMake target aaautil::testkit,
 * pkg-config aaautil-testkit) defines the functions of the platform contract
 * itself, so the calls that the library makes, and those of the program under
 * test, end in the kit instead of the host: nothing on the machine is read or
 * changed. Each call is noted, answered from a script when the test wrote one,
 * and otherwise served by a small platform in memory: a system database, a line
 * editor, an event manager, a password cipher. What the kit defines is listed in
 * the contract's headers; the controls of the Linux host (platform/control.h),
 * task table contents and sysdb_tuple_pack() and its siblings stay the host's.
 *
 * 1. **Start.** Run the program with NO_DLLMAIN=1 in the environment, so that
 *    the library does not start its worker thread before the test begins; or
 *    load the library later. Begin every test with testkit_reset().
 * 2. **Names.** A function is named by its contract's name, "sysdb_item_get". So
 *    are these of libc, which the program takes over as well: access (for the
 *    database provider's file), alarm, getpid, popen, tcgetattr, tcsetattr,
 *    time, ttyname_r.
 * 3. **Misuse** of the platform by the library or the program under test, such as
 *    a handle that is not open, ends the program with a message, unless
 *    testkit_on_misuse() says otherwise. So does misuse of the kit that would make
 *    a test pass without testing: an unknown name, a path that is not a full one, the
 *    zeroth call.
 * 4. **Threads.** Any function may be called from any thread, but not from a
 *    misuse handler. One test at a time.
 * 5. **Texts** that the kit gives are *borrowed*: valid until the calling
 *    thread's next call of a function that gives one.
 *
 *     testkit_reset();
 *     testkit_sysdb_put_u32("/cfg/limits/sessions", 2);
 *     testkit_fail_call("sysdb_item_set", 1, SYSDB_ERR_FULL, 0);
 *     assert(count_session(conn) == SYSDB_ERR_FULL);
 *     assert(testkit_log(0) != NULL);
 */

#include <stddef.h>
#include <stdint.h>

#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- a test's begin and end ------------------------------------------------- */

/** Everything back to the initial state: contents, scripts, records. */
void testkit_reset(void);

/**
 * Handler of misuse; the text says what was done.
 *
 * Runs on the thread that made the call, inside that call, and must not call the kit.
 */
typedef void (*testkit_misuse_fn)(const char *text, void *context);

/**
 * Sets what happens on misuse. Outlives testkit_reset().
 *
 * @param[in] handler  null for the initial behaviour: message on standard error and abort()
 * @param[in] context  handed to handler
 */
void testkit_on_misuse(testkit_misuse_fn handler, void *context);

/**
 * Connections of the system database that are open.
 *
 * @param[in] path  the directory that they are bound at; null for all, those included that the library keeps
 */
unsigned testkit_sysdb_open_connections(const char *path);

/** Listings of the system database that were not freed. */
unsigned testkit_sysdb_open_lists(void);

/* ---- recorded calls ---------------------------------------------------------- */

/** How often a function was called since the reset. */
unsigned testkit_count(const char *function);

/**
 * One recorded call as a line: sysdb_item_set(/cfg/limits/, "sessions", 1, 3, 4, 0).
 *
 * Integers are in decimal, text in quotes, a null pointer is null, other
 * pointers are ptr, a connection is the path that it is bound at, a listing is
 * list. Outputs and source lines are left out. Logging, tracing and the question
 * whether tracing is on are not among the calls.
 *
 * @param[in] function  whose calls; null for all, in their order
 * @param[in] index     0 for the first
 *
 * Ownership: *Borrowed*. @return the line, or null past the last.
 */
const char *testkit_call(const char *function, unsigned index);

/** Forgets calls, logs and traces; scripts and contents stay. */
void testkit_clear_calls(void);

/**
 * Text of a logged message, the index-th since the reset.
 *
 * Ownership: *Borrowed*. @return the text with its arguments filled in, or null past the last.
 */
const char *testkit_log(unsigned index);

/** The same message's mnemonic. Ownership: *Borrowed*. @return null past the last. */
const char *testkit_log_mnemonic(unsigned index);
/** The same message's severity. @return 0xFFFFFFFF past the last. */
uint32_t testkit_log_severity(unsigned index);

/** Switches a debug flag (aaa/debug_flags.h) on or off; all are off initially. */
void testkit_enable_tracing(uint32_t flag, int on);

/** Text of the index-th trace under a flag. Ownership: *Borrowed*. @return null past the last. */
const char *testkit_trace(uint32_t flag, unsigned index);

/* ---- scripts and injected failures ------------------------------------------- */

#define TESTKIT_FOREVER 0xFFFFFFFFu

/**
 * The next calls of a function do nothing and return a code.
 *
 * Several scripts for one function play one after the other. A script that plays
 * for ever has no end: a later script plays at once, then the first one
 * continues.
 *
 * @param[in] function  its name
 * @param[in] code      the result; a function that returns a pointer returns null instead
 * @param[in] times     number of calls, TESTKIT_FOREVER for all that follow
 * @param[in] error     errno value to set, or -1 to leave errno alone
 */
void testkit_answer(const char *function, uint32_t code, unsigned times, int error);

/**
 * The k-th call of a function from now on (1 = the next) does nothing and returns a code; the others work.
 *
 * While testkit_answer() plays, the k-th call gets this code instead of the
 * answer's, and the others the answer's. It counts among the answer's calls
 * too, so the answer ends where it would have ended. Of two for the same
 * call the later one holds. A testkit_answer() written after it begins after
 * the k-th call.
 */
void testkit_fail_call(const char *function, unsigned k, uint32_t code, int error);

/** Back to the built-in behaviour. */
void testkit_clear_answers(const char *function);

/**
 * The text that a function gives out from now on:
 * conf_get_timezone_string ("CET" initially), find_method_for_line ("default"),
 * aaa_util_find_line_remote_addr ("192.0.2.7"), pw_encrypt (the type in two digits
 * and the text's bytes in hex), pw_decrypt (the reverse).
 */
void testkit_give_text(const char *function, const char *text);

/**
 * Runs a function of the test before every call of one of the platform's functions,
 * for example to change the database as another process would.
 *
 * @param[in] function  its name
 * @param[in] hook      may call the kit; null ends it
 * @param[in] context  handed to hook
 */
void testkit_before(const char *function, void (*hook)(void *context), void *context);

/**
 * Tells whether allocations can be made to fail: the program is linked with
 * aaautil::testkit_alloc (pkg-config aaautil-testkit-alloc) too, and no sanitizer forbids it
 * to replace malloc.
 */
int testkit_alloc_available(void);

/**
 * From here to testkit_alloc_end() the k-th malloc(), calloc(), realloc(),
 * strdup() or strndup() of this thread returns null with errno ENOMEM, for
 * every caller. The allocations of the kit do not count. Without testkit_alloc_available() nothing fails.
 *
 * @param[in] k               1 = the next
 * @param[in] all_from_there  nonzero: the following ones fail too
 */
void testkit_alloc_fail(unsigned k, int all_from_there);

/** Ends that. @return number of allocations that were made to fail */
unsigned testkit_alloc_end(void);

/* ---- terminal, time, process ------------------------------------------------- */

/** Answer about a line's device: the terminal's kind and the result, initially 1 and 0. */
void testkit_tty(uint32_t kind, int32_t result);

/**
 * One line for the line editor, after those given before. With none left the
 * editor gives no line.
 *
 * @param[in] text   the line; null for none
 * @param[in] ok     what the editor says about it, 1 for a good line
 * @param[in] error  errno value that it leaves, 0 for a good line
 */
void testkit_type_line(const char *text, int ok, int error);

/** Name that ttyname_r() gives, or its failure when error is not 0. */
void testkit_ttyname(const char *text, int error);

/** Stops the clock, time(), at a moment. */
void testkit_stop_clock(int64_t seconds);
/** Lets the clock run again. */
void testkit_run_clock(void);

/* ---- system database --------------------------------------------------------- */
/* Contents by full path ("/cfg/limits/sessions"), as another process would change
 * them: watches of a path are reported at the next sysdb_dispatch(). */

/** Whether there is a database provider; 1 initially. Without one _sysdb_bind() is SYSDB_ERR_LIB_ABSENT. */
void testkit_sysdb_present(int on);

/** A number. */
void testkit_sysdb_put_u32(const char *path, uint32_t value);
/** A text. *Copied in*. */
void testkit_sysdb_put_string(const char *path, const char *text);
/** Any item: type and bytes. *Copied in*. A value of sysdb_tuple_pack() goes with SYSDB_TYPE_TUPLE. */
void testkit_sysdb_put(const char *path, uint32_t type, const void *value, size_t length);
/** A method list: four methods, four group names (null = none). */
void testkit_sysdb_put_method_list(const char *path, const uint32_t methods[4], const char *const groups[4]);
/** A directory that exists while it is empty. */
void testkit_sysdb_make_directory(const char *path);
/** An item, or a directory that was made and is empty. */
void testkit_sysdb_remove(const char *path);

/** A number. @return 1, or 0 when there is none; value is then untouched */
int testkit_sysdb_get_u32(const char *path, uint32_t *value);
/** A text. Ownership: *Borrowed*. @return null when there is none */
const char *testkit_sysdb_get_string(const char *path);
/** Paths of all items, in order. Ownership: *Borrowed*. @return null past the last */
const char *testkit_sysdb_path(unsigned index);

/* ---- event manager ----------------------------------------------------------- */

/** Makes event_block() return without an event. */
void testkit_wake(void);
/** Number of asynchronous events that were sent. */
unsigned testkit_async_sent(void);

#ifdef __cplusplus
}
#endif

#endif /* AAA_TESTKIT_H */
