// SPDX-License-Identifier: Apache-2.0
//
// Scripted stand-in for the host platform. A test program that links it
// defines every function of the platform contract itself, so the calls that
// libaaautil.so makes end here: each is noted in a journal, answered from a
// script when the test wrote one, and otherwise served by a small in-memory
// platform (database, event manager, line editor, cipher).
//
// The program says when the state is reset and what to do about misuse of a
// handle or a null handed to "%s". The tests of this tree do it before every
// test.
//
// The fake's own memory never counts for allocation failure injection
// (fail_alloc_region.hpp), except for malloc_named and its siblings, whose blocks
// are the library's.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/aaautil.h"
#include "platform/event_manager.h"
#include "platform/logging.h"
#include "platform/sysdb.h"
#include "platform/terminal.h"

namespace fake {

// ---- Journal ---------------------------------------------------------------
//
// One line per call, "name(arg, arg)": integers in decimal, text in quotes,
// null pointers as "null", other pointers as "ptr", database connections as
// the path that they are bound at (0 when there is none), lists as "list".
// Out-arguments and source line numbers are left out.

// Every call in order but tracing and logging (which have journals of their
// own below).
std::vector<std::string> calls();
// The same, calls of one function only.
std::vector<std::string> calls(std::string_view function);
// Every call of the given functions, in order.
std::vector<std::string> calls(std::initializer_list<std::string_view> functions);
// Number of calls since the reset; aaa_debugging and the like included.
unsigned count(std::string_view function);
// Forgets the journals; keeps scripts and contents.
void clear_journal();
// Everything back to the initial state.
void reset();
// What to do about misuse of the platform: a handle that is not open, a null
// handed to "%s". Initially the program ends with a message. Called with the
// fake's lock held, so it must not call the fake. Outlives a reset.
void on_misuse(std::function<void(const std::string &)> handler);
// The library calls the platform in narrower ways than the contract allows:
// zeroed outputs, a list started before it is read. With this on, anything else
// is misuse. Outlives a reset.
void expect_the_library(bool on);
// The journal line of the presence check.
std::string presence_call();

// ---- Traces and logs -------------------------------------------------------

struct Trace {
    uint32_t flag;
    std::string text;
    bool operator==(const Trace &) const = default;
};
struct Log {
    const kel_msg_rec_t *record;
    uint32_t severity;
    std::string mnemonic;
    std::string text;
};

// What aaa_debugging answers; all off initially. aaa_debug lines are always
// recorded.
void enable_tracing(uint32_t flag, bool on = true);
void disable_all_tracing();
// Whether callers may look at the flags themselves and do not ask: in a process
// that was started with AAA_FAKE_DEBUG_WORD in its environment.
bool has_debug_word();
std::vector<Trace> traces();
std::vector<std::string> traces_of(uint32_t flag);
std::vector<Log> logs();
std::vector<std::string> log_texts();

// ---- Scripts ---------------------------------------------------------------

inline constexpr unsigned kForever = 0xFFFFFFFFu;

// The next `times` calls of the function do nothing and return `code` (for a
// function that returns a pointer: null). Several scripts for one function
// play one after the other. With `error` errno is set as well.
void answer(std::string_view function, uint32_t code, unsigned times = kForever,
            std::optional<int> error = {});
// The k-th call from now (1 = the next one) returns `code` and does nothing.
void fail_call(std::string_view function, unsigned k, uint32_t code, std::optional<int> error = {});
// Back to the built-in behaviour.
void clear_answers(std::string_view function);

// Text that a function gives out instead of its default:
//   conf_get_timezone_string ("CET"), find_method_for_line ("default"),
//   aaa_util_find_line_remote_addr ("192.0.2.7"), pw_encrypt (two digits and
//   the text's bytes in hex), pw_decrypt (the reverse, null when malformed).
void give_text(std::string_view function, std::string text);

// Runs instead of the built-in behaviour (after the journal and the scripts).
void on_find_method_for_line(std::function<uint32_t(uint32_t kind, std::string &name)> hook);
void on_check_linetype(std::function<uint32_t(aaa_usercred_t *)> hook);
// Runs before __in_dlclose, event_block, ... : the function's name is given.
void before(std::string_view function, std::function<void()> hook);

// ---- Terminal, node --------------------------------------------------------

// tty_details_from_device_file: kind and result (initially 1 and 0).
void set_tty_kind(uint32_t kind, int32_t result = 0);
// One line for qm_getline: text (null when absent), the ok flag and errno
// that it leaves. Without any the answer is null and errno 0.
void push_line(std::optional<std::string> text, int ok = 1, int error = 0);
// The option and value of each getline_configure call.
std::vector<std::pair<uint32_t, uint32_t>> getline_options();
std::vector<void *> destroyed_task_tables();
// The mutex that a thread last announced to wait for.
pthread_mutex_t *awaited_mutex();

// ---- libc ------------------------------------------------------------------
// These reach the real function unless a test says otherwise. Noted in the
// journal only while a test has taken the function over.

namespace libc {
void set_time(std::optional<int64_t> now);
void set_pid(std::optional<int> pid);
// ttyname_r: 0 copies the text (ERANGE when it does not fit), else the code.
void set_ttyname(std::string text, int result = 0);
void on_alarm(std::function<unsigned(unsigned)> hook);
void on_popen(std::function<void *(const char *command, const char *mode)> hook);
// The errno value to fail with, also 0; nothing to reach the real function.
void on_tcgetattr(std::function<std::optional<int>(int fd)> hook);
void on_tcsetattr(std::function<std::optional<int>(int fd, int action)> hook);
// Returns 0 or an errno value.
void on_access(std::function<int(const char *path, int mode)> hook);
}  // namespace libc

// ---- Event manager ---------------------------------------------------------
// One event manager at a time. Opening a connection calls its up callback on
// the caller's thread; a negative result makes event_conn_open answer
// 0x21200e00.

namespace events {
struct Connection {
    event_conn_t handle;
    event_manager_t manager;
    aaa_event_cb_t up, down, handler;
    void *context;
    uint32_t type, notify_mask;
    bool opened;
    int32_t channel;
};
inline constexpr int32_t kAsyncCode = 77;
std::vector<Connection> connections();
// event_conn_open then does not call the up callback and returns 0.
void set_call_up(bool on);
// The handle that event_manager_create gives out.
event_manager_t manager();
// Makes event_block return without any event having been sent.
void wake();
unsigned async_sent();
// Runs on the thread that is in event_block, before it waits.
void on_block(std::function<void(event_block_ctx_t *)> hook);
}  // namespace events

// ---- System database -------------------------------------------------------
// Items by full path. Directories exist when something is below them or when
// they were made. The database library's file is present by default.

namespace sysdb {

inline constexpr cerrno kWrongType = SYSDB_ERR_TYPE_MISMATCH;
inline constexpr cerrno kBadHandle = SYSDB_ERR_BAD_HANDLE;
inline constexpr cerrno kEndOfList = SYSDB_ERR_END_OF_LIST;

struct Item {
    uint32_t type;
    std::vector<uint8_t> value;
    bool null_value = false;  // read as a null with length 0
};
struct Notification {
    uint64_t handle;
    std::string path;  // full
    uint32_t events, mode;
    aaa_notify_cb_t callback;
    void *callback_arg;
    void *user_ctx;
};

// Answer of the presence check, access(".../lib/libsysdb.so", R_OK).
void set_present(bool on);

void put_u32(std::string_view path, uint32_t value);
void put_string(std::string_view path, std::string_view text);
void put(std::string_view path, Item item);
// A tuple of integers and names as tuple_unpack_mask reads it.
void put_tuple(std::string_view path, std::vector<uint32_t> numbers, std::vector<std::string> names);
std::vector<uint8_t> tuple(const std::vector<uint32_t> &numbers, const std::vector<std::string> &names);
void make_directory(std::string_view path);
void remove(std::string_view path);
std::optional<Item> get(std::string_view path);
std::optional<uint32_t> get_u32(std::string_view path);
std::optional<std::string> get_string(std::string_view path);
std::vector<std::string> paths();

// sysdb_list and sysdb_find store a list handle also when they are scripted
// to fail; the library must free it.
void set_list_on_failure(bool on);

// Bind paths of the connections that are open.
std::vector<std::string> open_connections();
unsigned open_lists();
std::vector<Notification> notifications();
// Calls the callback of a registered notification.
int32_t notify(uint64_t handle, const void *notification);

}  // namespace sysdb

}  // namespace fake
