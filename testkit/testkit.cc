// SPDX-License-Identifier: Apache-2.0
//
// The test kit's C interface over the fake platform.

#include "aaa/testkit.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "testkit/fail_alloc_region.hpp"
#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

namespace {

using fake::FailAlloc;

// Keeps the text that is handed out: one for each thread, and without a
// destructor, which would keep a module that holds it from being unloaded.
const char *borrowed(const std::optional<std::string> &text) {
    static thread_local char *held = nullptr;
    std::free(held);
    held = text ? strdup(text->c_str()) : nullptr;
    return held;
}

const char *borrowed(const std::vector<std::string> &texts, unsigned index) {
    return borrowed(index < texts.size() ? std::optional(texts[index]) : std::nullopt);
}

std::optional<int> errno_value(int error) {
    return error < 0 ? std::nullopt : std::optional(error);
}

const char *text_or_empty(const char *text) {
    return text == nullptr ? "" : text;
}

// An item under a path that is never looked up would make a test pass without testing.
bool is_full_path(const char *function, const char *path, bool directory = false) {
    std::string_view text = text_or_empty(path);
    if (directory && text.size() > 1 && text.back() == '/') {
        text.remove_suffix(1);
    }
    const bool full = text.size() > 1 && text.front() == '/' && text.back() != '/' &&
                      text.find("//") == std::string_view::npos;
    if (!full) {
        fake::detail::problem(std::string(function) + " without a full path: \"" + text_or_empty(path) +
                              "\"");
    }
    return full;
}

bool gives_text(std::string_view function) {
    constexpr std::string_view kGivers[] = {"conf_get_timezone_string", "find_method_for_line",
                                            "aaa_util_find_line_remote_addr", "pw_encrypt", "pw_decrypt"};
    return std::find(std::begin(kGivers), std::end(kGivers), function) != std::end(kGivers);
}

}  // namespace

// ---- Begin and end ----

void testkit_reset() {
    fake::reset();
}

void testkit_on_misuse(testkit_misuse_fn handler, void *context) {
    const FailAlloc::Pause pause;
    if (handler == nullptr) {
        fake::on_misuse(nullptr);
    } else {
        fake::on_misuse([=](const std::string &text) { handler(text.c_str(), context); });
    }
}

unsigned testkit_sysdb_open_connections(const char *path) {
    const FailAlloc::Pause pause;
    const auto bound = fake::sysdb::open_connections();
    return static_cast<unsigned>(std::count_if(
        bound.begin(), bound.end(), [&](const auto &at) { return path == nullptr || at == path; }));
}

unsigned testkit_sysdb_open_lists() {
    return fake::sysdb::open_lists();
}

// ---- Recorded calls ----

unsigned testkit_count(const char *function) {
    return fake::count(function);
}

const char *testkit_call(const char *function, unsigned index) {
    const FailAlloc::Pause pause;
    return borrowed(function == nullptr ? fake::calls() : fake::calls(function), index);
}

void testkit_clear_calls() {
    fake::clear_journal();
}

const char *testkit_log(unsigned index) {
    const FailAlloc::Pause pause;
    return borrowed(fake::log_texts(), index);
}

const char *testkit_log_mnemonic(unsigned index) {
    const FailAlloc::Pause pause;
    const auto logs = fake::logs();
    return borrowed(index < logs.size() ? std::optional(logs[index].mnemonic) : std::nullopt);
}

uint32_t testkit_log_severity(unsigned index) {
    const FailAlloc::Pause pause;
    const auto logs = fake::logs();
    return index < logs.size() ? logs[index].severity : 0xFFFFFFFFu;
}

void testkit_enable_tracing(uint32_t flag, int on) {
    fake::enable_tracing(flag, on != 0);
}

const char *testkit_trace(uint32_t flag, unsigned index) {
    const FailAlloc::Pause pause;
    return borrowed(fake::traces_of(flag), index);
}

// ---- Scripts ----

void testkit_answer(const char *function, uint32_t code, unsigned times, int error) {
    const FailAlloc::Pause pause;
    fake::answer(function, code, times, errno_value(error));
}

void testkit_fail_call(const char *function, unsigned k, uint32_t code, int error) {
    const FailAlloc::Pause pause;
    if (k == 0) {
        fake::detail::problem("testkit_fail_call counts from 1");
        return;
    }
    fake::fail_call(function, k, code, errno_value(error));
}

void testkit_clear_answers(const char *function) {
    fake::clear_answers(function);
}

void testkit_give_text(const char *function, const char *text) {
    const FailAlloc::Pause pause;
    if (!gives_text(function)) {
        fake::detail::problem("testkit_give_text to a function that gives no text: " + std::string(function));
        return;
    }
    fake::give_text(function, text_or_empty(text));
}

void testkit_before(const char *function, void (*hook)(void *), void *context) {
    const FailAlloc::Pause pause;
    if (hook == nullptr) {
        fake::before(function, nullptr);
    } else {
        fake::before(function, [=] { hook(context); });
    }
}

int testkit_alloc_available() {
    return fail_alloc_available();
}

void testkit_alloc_fail(unsigned k, int all_from_there) {
    fail_alloc_arm(k, all_from_there);
}

unsigned testkit_alloc_end() {
    fail_alloc_disarm();
    return fail_alloc_fired();
}

// ---- Terminal, time, process ----

void testkit_tty(uint32_t kind, int32_t result) {
    fake::set_tty_kind(kind, result);
}

void testkit_type_line(const char *text, int ok, int error) {
    const FailAlloc::Pause pause;
    fake::push_line(text == nullptr ? std::nullopt : std::optional<std::string>(text), ok, error);
}

void testkit_ttyname(const char *text, int error) {
    const FailAlloc::Pause pause;
    fake::libc::set_ttyname(text_or_empty(text), error);
}

void testkit_stop_clock(int64_t seconds) {
    fake::libc::set_time(seconds);
}

void testkit_run_clock() {
    fake::libc::set_time(std::nullopt);
}

// ---- System database ----

void testkit_sysdb_present(int on) {
    fake::sysdb::set_present(on != 0);
}

void testkit_sysdb_put_u32(const char *path, uint32_t value) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path)) {
        return;
    }
    fake::sysdb::put_u32(path, value);
}

void testkit_sysdb_put_string(const char *path, const char *text) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path)) {
        return;
    }
    fake::sysdb::put_string(path, text_or_empty(text));
}

void testkit_sysdb_put(const char *path, uint32_t type, const void *value, size_t length) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path)) {
        return;
    }
    const auto *const bytes = static_cast<const uint8_t *>(value);
    fake::sysdb::put(path, {type, std::vector<uint8_t>(bytes, bytes + length)});
}

void testkit_sysdb_put_method_list(const char *path, const uint32_t methods[4], const char *const groups[4]) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path)) {
        return;
    }
    std::vector<std::string> names;
    for (int i = 0; i < 4; ++i) {
        names.emplace_back(text_or_empty(groups[i]));
    }
    fake::sysdb::put_tuple(path, {methods, methods + 4}, std::move(names));
}

void testkit_sysdb_make_directory(const char *path) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path, true)) {
        return;
    }
    fake::sysdb::make_directory(path);
}

void testkit_sysdb_remove(const char *path) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path, true)) {
        return;
    }
    fake::sysdb::remove(path);
}

int testkit_sysdb_get_u32(const char *path, uint32_t *value) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path)) {
        return 0;
    }
    const auto found = fake::sysdb::get_u32(path);
    if (found) {
        *value = *found;
    }
    return found ? 1 : 0;
}

const char *testkit_sysdb_get_string(const char *path) {
    const FailAlloc::Pause pause;
    if (!is_full_path(__func__, path)) {
        return nullptr;
    }
    return borrowed(fake::sysdb::get_string(path));
}

const char *testkit_sysdb_path(unsigned index) {
    const FailAlloc::Pause pause;
    return borrowed(fake::sysdb::paths(), index);
}

// ---- Event manager ----

void testkit_wake() {
    fake::events::wake();
}

unsigned testkit_async_sent() {
    return fake::events::async_sent();
}
