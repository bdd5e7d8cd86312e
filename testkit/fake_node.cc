// SPDX-License-Identifier: Apache-2.0
//
// Node, process and result-code services of the fake platform.

#include "platform/node.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>

#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

// Weak: the tables belong to the library.
extern "C" {
extern const aaa_cerr_data_t cerr_data __attribute__((weak));
}

namespace fake {
namespace {

using detail::Access;
using detail::Call;
using detail::Word;

std::vector<void *> &task_tables() {
    static auto &instance = *new std::vector<void *>;
    return instance;
}

pthread_mutex_t *last_awaited = nullptr;

// Code layout: facility in bits 15 to 28, index in bits 9 to 14.
const char *own_text(cerrno code) {
    const aaa_cerr_data_t *const data = &cerr_data;
    const uint32_t index = code >> 9 & 0x3f;
    if (data == nullptr || (code >> 15 & 0x3fff) != AAA_FACILITY || index >= data->rows) {
        return nullptr;
    }
    return data->table[index].text;
}

const char *other_text(cerrno code) {
    static auto &texts = *new std::map<cerrno, std::string>;
    std::string &text = texts[code];
    if (text.empty()) {
        char made[32];
        std::snprintf(made, sizeof made, "code 0x%08x", code);
        text = made;
    }
    return text.c_str();
}

}  // namespace

namespace detail {
void reset_node() {
    const Access access;
    task_tables().clear();
    last_awaited = nullptr;
}
}  // namespace detail

std::vector<void *> destroyed_task_tables() {
    const Access access;
    return task_tables();
}

pthread_mutex_t *awaited_mutex() {
    const Access access;
    return last_awaited;
}

}  // namespace fake

using namespace fake;

cerrno cerr_register_dll(uint32_t facility, const char *dll_name) {
    const Call call("cerr_register_dll", facility, dll_name);
    return call.scripted().value_or(0);
}

const char *cerr_strerror(cerrno code) {
    const Call call("cerr_strerror", code);
    const char *const own = own_text(code);
    return own != nullptr ? own : other_text(code);
}

int platform_am_i_lc(void) {
    const Call call("platform_am_i_lc");
    return static_cast<int>(call.scripted().value_or(0));
}

cerrno conf_get_timezone_string(char *buffer, uint32_t size) {
    const Call call("conf_get_timezone_string", Word{buffer == nullptr ? "null" : "ptr"}, size);
    if (call.scripted()) {
        return *call.scripted();
    }
    std::strncpy(buffer, call.text().value_or("CET").c_str(), size);
    buffer[size - 1] = '\0';
    return 0;
}

int32_t qm_gettid(void) {
    const Call call("qm_gettid");
    return static_cast<int32_t>(call.scripted().value_or(4242));
}

const char *qm_inet_ntop(int family, const void *address, char *buffer, size_t limit) {
    const Call call("qm_inet_ntop", family, address, Word{buffer == nullptr ? "null" : "ptr"}, limit);
    return call.scripted() ? nullptr : inet_ntop(family, address, buffer, static_cast<socklen_t>(limit));
}

int qm_close(int fd) {
    Call call("qm_close", fd);
    if (call.scripted()) {
        return static_cast<int>(*call.scripted());
    }
    const int result = close(fd);
    if (result != 0) {
        call.set_errno(errno);
    }
    return result;
}

void aaa_destroy_task_table(void *task_table) {
    const Call call("aaa_destroy_task_table", task_table);
    task_tables().push_back(task_table);
}

void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function_name, int line) {
    const Call call("ptd_set_mutex_block", mutex, function_name);
    last_awaited = mutex;
    if (line <= 0) {
        detail::problem("ptd_set_mutex_block without a source line");
    }
}

void ptd_unset_mutex_block(void) {
    const Call call("ptd_unset_mutex_block");
}

void _init_libc_globals(void) {
    const Call call("_init_libc_globals");
}

int __in_dlclose(void) {
    const Call call("__in_dlclose");
    return static_cast<int>(call.scripted().value_or(0));
}
