// SPDX-License-Identifier: Apache-2.0
//
// Journal, scripts and reset of the fake platform.

#include "testkit/fake_platform.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "testkit/fake_state.hpp"

// Weak: a program that loads the library later, or not at all, still links.
extern "C" {
extern uint64_t aaa_sgmap_sysdb_connid __attribute__((weak));
extern uint64_t aaa_cfg_sysdb_connid __attribute__((weak));
}

namespace fake {
namespace {

using detail::Access;

struct Script {
    unsigned from, to;
    uint32_t code;
    std::optional<int> error;
};

struct Function {
    unsigned calls = 0;
    std::vector<Script> scripts;
    std::optional<std::string> text;
    std::function<void()> before;
};

struct Line {
    std::string_view function;  // key of State::functions
    std::string text;
};

struct State {
    std::map<std::string, Function, std::less<>> functions;
    std::vector<Line> journal;
    std::function<void(const std::string &)> misuse;
    bool strict = false;
};

// Never destroyed: platform functions are still called while the process exits.
State &state() {
    static State &instance = *new State;
    return instance;
}

Function &function(std::string_view name) {
    auto &functions = state().functions;
    const auto found = functions.find(name);
    return found != functions.end() ? found->second : functions.emplace(name, Function{}).first->second;
}

constexpr std::array kFunctions = std::to_array<std::string_view>({
    "memcpy_s",
    "memset_s",
    "strcmp_s",
    "sstrncpy",
    "__memcpy_to_buf",
    "__strncpy_to_buf",
    "cerr_register_dll",
    "cerr_strerror",
    "pw_encrypt",
    "pw_decrypt",
    "event_manager_create",
    "event_async_attach",
    "event_send_async",
    "event_block",
    "qm_event_dispatch",
    "event_conn_create",
    "event_conn_notify",
    "event_conn_evm_handler",
    "event_conn_open",
    "event_conn_close",
    "event_manager_destroy",
    "kel_errmsg",
    "aaa_debug",
    "aaa_debugging",
    "aaa_debug_init",
    "aaa_debug_word",
    "aaa_debug_cleanup",
    "malloc_named",
    "calloc_named",
    "realloc_named",
    "queue_init",
    "queue_enqueue",
    "queue_unqueue",
    "platform_am_i_lc",
    "conf_get_timezone_string",
    "qm_gettid",
    "qm_inet_ntop",
    "qm_close",
    "aaa_destroy_task_table",
    "ptd_set_mutex_block",
    "ptd_unset_mutex_block",
    "_init_libc_globals",
    "__in_dlclose",
    "_sysdb_bind",
    "_sysdb_unbind",
    "sysdb_conn_to_coid",
    "sysdb_item_get",
    "sysdb_item_set",
    "sysdb_item_delete",
    "sysdb_apply",
    "sysdb_list",
    "sysdb_list_start",
    "sysdb_list_next",
    "sysdb_list_free",
    "sysdb_find",
    "sysdb_directory_get_last",
    "_sysdb_register_notification",
    "sysdb_notification_unregister",
    "sysdb_dispatch",
    "tuple_unpack_mask",
    "tty_details_from_device_file",
    "find_method_for_line",
    "aaa_util_check_linetype",
    "aaa_util_find_line_remote_addr",
    "getline_init",
    "getline_configure",
    "gl_ret_on_eintr_enable",
    "qm_getline",
    "getline_free",
    // libc
    "access",
    "alarm",
    "getpid",
    "popen",
    "tcgetattr",
    "tcsetattr",
    "time",
    "ttyname_r",
});

void require_known(std::string_view name) {
    if (std::find(kFunctions.begin(), kFunctions.end(), name) == kFunctions.end()) {
        detail::problem("the fake platform has no function " + std::string(name));
    }
}

std::vector<std::string> lines_if(const std::function<bool(std::string_view)> &wanted) {
    const Access access;
    std::vector<std::string> result;
    for (const Line &line : state().journal) {
        if (wanted(line.function)) {
            result.push_back(line.text);
        }
    }
    return result;
}

}  // namespace

namespace detail {

std::mutex &mutex() {
    static constinit std::mutex instance;
    return instance;
}

void problem(const std::string &text) {
    const FailAlloc::Pause pause;
    if (state().misuse) {
        state().misuse(text);
        return;
    }
    std::fprintf(stderr, "platform contract: %s\n", text.c_str());
    std::abort();
}

bool strict() {
    return state().strict;
}

void Call::enter() {
    errno_ = errno;
    fail_alloc_pause();
    mutex().lock();
    Function &f = function(function_);
    ++f.calls;
    for (auto script = f.scripts.rbegin(); script != f.scripts.rend(); ++script) {
        if (script->from <= f.calls && f.calls <= script->to) {
            scripted_ = script->code;
            errno_ = script->error.value_or(errno_);
            break;
        }
    }
    if (f.before) {
        const auto hook = f.before;
        unlocked(hook);
    }
}

Call::~Call() {
    leave();
    errno = errno_;
}

void Call::leave() {
    mutex().unlock();
    fail_alloc_resume();
}

void Call::again() {
    fail_alloc_pause();
    mutex().lock();
}

void Call::write(const std::string &text) {
    state().journal.push_back({state().functions.find(function_)->first, text});
}

std::optional<std::string> Call::text() const {
    return function(function_).text;
}

}  // namespace detail

std::vector<std::string> calls() {
    return lines_if([](std::string_view) { return true; });
}

std::vector<std::string> calls(std::string_view name) {
    require_known(name);
    return lines_if([&](std::string_view line) { return line == name; });
}

std::vector<std::string> calls(std::initializer_list<std::string_view> names) {
    std::for_each(names.begin(), names.end(), require_known);
    return lines_if(
        [&](std::string_view line) { return std::find(names.begin(), names.end(), line) != names.end(); });
}

unsigned count(std::string_view name) {
    require_known(name);
    const Access access;
    return function(name).calls;
}

void clear_journal() {
    {
        const Access access;
        state().journal.clear();
        for (auto &[name, f] : state().functions) {
            // Scripts count from the reset on, so keep what is left of them.
            for (Script &script : f.scripts) {
                script.from = script.from > f.calls ? script.from - f.calls : 1;
                script.to = script.to == kForever ? kForever : script.to > f.calls ? script.to - f.calls : 0;
            }
            f.calls = 0;
        }
    }
    detail::reset_logging();
}

void reset() {
    {
        const Access access;
        // The journal's lines point into the functions.
        state().journal.clear();
        state().functions.clear();
    }
    detail::reset_logging();
    detail::reset_events();
    detail::reset_sysdb();
    detail::reset_terminal();
    detail::reset_libc();
    detail::reset_node();
    // Handles of an earlier test mean nothing any more.
    for (uint64_t *const shared : {&aaa_sgmap_sysdb_connid, &aaa_cfg_sysdb_connid}) {
        if (shared != nullptr) {
            __atomic_store_n(shared, uint64_t{0}, __ATOMIC_SEQ_CST);
        }
    }
    disable_all_tracing();
}

void on_misuse(std::function<void(const std::string &)> handler) {
    const Access access;
    state().misuse = std::move(handler);
}

void expect_the_library(bool on) {
    const Access access;
    state().strict = on;
}

void answer(std::string_view name, uint32_t code, unsigned times, std::optional<int> error) {
    require_known(name);
    const Access access;
    Function &f = function(name);
    unsigned after = f.calls;
    for (const Script &script : f.scripts) {
        after = script.to == kForever ? f.calls : std::max(after, script.to);
    }
    f.scripts.push_back({after + 1, times == kForever ? kForever : after + times, code, error});
}

void fail_call(std::string_view name, unsigned k, uint32_t code, std::optional<int> error) {
    require_known(name);
    const Access access;
    Function &f = function(name);
    f.scripts.push_back({f.calls + k, f.calls + k, code, error});
}

void clear_answers(std::string_view name) {
    require_known(name);
    const Access access;
    function(name).scripts.clear();
}

void give_text(std::string_view name, std::string text) {
    require_known(name);
    const Access access;
    function(name).text = std::move(text);
}

void before(std::string_view name, std::function<void()> hook) {
    require_known(name);
    const Access access;
    function(name).before = std::move(hook);
}

}  // namespace fake
