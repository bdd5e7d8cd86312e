/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The host platform of a module in a program of others. It has what composing and
 * reading a message needs: no database, no line, no event manager, no log of its own.
 * It reads no environment, so the caller of a set-user-ID program has no influence on
 * it. The version scripts keep these names inside the module.
 */

#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <unistd.h>

#include "platform/cerr.h"
#include "platform/event_manager.h"
#include "platform/logging.h"
#include "platform/node.h"
#include "platform/sysdb.h"
#include "platform/terminal.h"

#define NOT_HERE ((cerrno)ENOSYS)

/* ---- codes, log, traces: a trace could hold a password ------------------------- */

const char *cerr_strerror(cerrno code) {
    return code == 0 ? "Success" : "Error";
}

void kel_errmsg(const void *record, uint32_t severity, ...) {
    (void)record;
    (void)severity;
}

void aaa_debug(uint32_t flag, const char *format, ...) {
    (void)flag;
    (void)format;
}

int aaa_debugging(uint32_t flag) {
    (void)flag;
    return 0;
}

/* Also keeps the library from asking a host that the program has. */
const uint32_t *aaa_debug_word(int (*debugging)(uint32_t flag)) {
    (void)debugging;
    return NULL;
}

/* ---- the node ------------------------------------------------------------------- */

int platform_am_i_lc(void) {
    return 0;
}

/* The times in messages are seconds since 1970, so they are called UTC. */
cerrno conf_get_timezone_string(char *buffer, uint32_t size) {
    (void)buffer;
    (void)size;
    return NOT_HERE;
}

int32_t qm_gettid(void) {
    return (int32_t)gettid();
}

const char *qm_inet_ntop(int family, const void *address, char *buffer, size_t limit) {
    return inet_ntop(family, address, buffer, (socklen_t)limit);
}

void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function_name, int line) {
    (void)mutex;
    (void)function_name;
    (void)line;
}

void ptd_unset_mutex_block(void) {}

/* ---- the line: the program says where the user is, not the terminal ------------- */

cerrno find_method_for_line(uint32_t kind, char **list_name) {
    (void)kind;
    (void)list_name;
    return LINE_NO_CONTROLLING_TTY;
}

cerrno aaa_util_check_linetype(aaa_usercred_t *cred) {
    (void)cred;
    return NOT_HERE;
}

cerrno aaa_util_find_line_remote_addr(char *buffer, uint32_t size) {
    (void)buffer;
    (void)size;
    return NOT_HERE;
}

/* ---- the database ----------------------------------------------------------------- */

cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    (void)conn;
    (void)path;
    (void)flags;
    return NOT_HERE;
}

cerrno _sysdb_unbind(sysdb_conn_t conn) {
    (void)conn;
    return NOT_HERE;
}

cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid) {
    (void)conn;
    (void)coid;
    return NOT_HERE;
}

cerrno sysdb_item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value, uint32_t *length,
                      uint32_t flags) {
    (void)flags;
    (void)conn;
    (void)path;
    (void)datatype;
    (void)value;
    (void)length;
    return NOT_HERE;
}

/* ---- events ------------------------------------------------------------------------- */

cerrno event_conn_create(event_conn_t *conn_out, event_manager_t evm, aaa_event_cb_t up_cb, void *ctx,
                         uint32_t type) {
    (void)conn_out;
    (void)evm;
    (void)up_cb;
    (void)ctx;
    (void)type;
    return NOT_HERE;
}

cerrno event_conn_notify(event_conn_t conn, uint32_t mask, aaa_event_cb_t down_cb) {
    (void)conn;
    (void)mask;
    (void)down_cb;
    return NOT_HERE;
}

cerrno event_conn_evm_handler(event_conn_t conn, uint32_t arg, aaa_event_cb_t handler_cb, void *zero) {
    (void)conn;
    (void)arg;
    (void)handler_cb;
    (void)zero;
    return NOT_HERE;
}

cerrno event_conn_open(event_conn_t conn) {
    (void)conn;
    return NOT_HERE;
}
