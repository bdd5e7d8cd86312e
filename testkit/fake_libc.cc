// SPDX-License-Identifier: Apache-2.0
//
// The test's side of the libc functions that the program takes over.

#include "testkit/fake_libc.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

namespace fake::libc {
namespace {

using detail::Access;
using detail::Call;

struct Libc {
    int64_t now = 0;
    int pid = 0;
    std::string tty;
    int tty_result = 0;
    std::function<unsigned(unsigned)> alarm;
    std::function<void *(const char *, const char *)> popen;
    std::function<int(const char *, int)> access;
    std::function<std::optional<int>(int)> tcgetattr;
    std::function<std::optional<int>(int, int)> tcsetattr;
};

Libc &state() {
    static Libc &instance = *new Libc;
    return instance;
}

long fake_time() {
    const Call call("time");
    return static_cast<long>(state().now);
}

int fake_getpid() {
    const Call call("getpid");
    return state().pid;
}

int fake_ttyname_r(int fd, char *buffer, size_t size) {
    const Call call("ttyname_r", fd, size);
    // Written even if the call fails: libc's function may have written a part before.
    const std::string &tty = state().tty;
    std::memcpy(buffer, tty.c_str(), std::min(size, tty.size() + 1));
    if (state().tty_result != 0) {
        return state().tty_result;
    }
    return tty.size() < size ? 0 : ERANGE;
}

unsigned fake_alarm(unsigned seconds) {
    Call call("alarm", seconds);
    const auto hook = state().alarm;
    return call.unlocked([&] { return hook(seconds); });
}

void *fake_popen(const char *command, const char *mode) {
    Call call("popen", command, mode);
    const auto hook = state().popen;
    return call.unlocked([&] { return hook(command, mode); });
}

int fake_access(const char *path, int mode) {
    Call call("access", path, mode);
    const auto hook = state().access;
    return call.unlocked([&] { return hook(path, mode); });
}

int stored(std::optional<int> answer, int *error) {
    *error = answer.value_or(0);
    return answer ? 1 : 0;
}

int fake_tcgetattr(int fd, int *error) {
    Call call("tcgetattr", fd);
    const auto hook = state().tcgetattr;
    return stored(call.unlocked([&] { return hook(fd); }), error);
}

int fake_tcsetattr(int fd, int action, int *error) {
    Call call("tcsetattr", fd, action);
    const auto hook = state().tcsetattr;
    return stored(call.unlocked([&] { return hook(fd, action); }), error);
}

}  // namespace

void set_time(std::optional<int64_t> now) {
    const Access access;
    state().now = now.value_or(0);
    fake_libc.time = now ? fake_time : nullptr;
}

void set_pid(std::optional<int> pid) {
    const Access access;
    state().pid = pid.value_or(0);
    fake_libc.getpid = pid ? fake_getpid : nullptr;
}

void set_ttyname(std::string text, int result) {
    const Access access;
    state().tty = std::move(text);
    state().tty_result = result;
    fake_libc.ttyname_r = fake_ttyname_r;
}

void on_alarm(std::function<unsigned(unsigned)> hook) {
    const Access access;
    state().alarm = std::move(hook);
    fake_libc.alarm = state().alarm ? fake_alarm : nullptr;
}

void on_popen(std::function<void *(const char *, const char *)> hook) {
    const Access access;
    state().popen = std::move(hook);
    fake_libc.popen = state().popen ? fake_popen : nullptr;
}

void on_access(std::function<int(const char *, int)> hook) {
    const Access access;
    state().access = std::move(hook);
    fake_libc.access = state().access ? fake_access : nullptr;
}

void on_tcgetattr(std::function<std::optional<int>(int)> hook) {
    const Access access;
    state().tcgetattr = std::move(hook);
    fake_libc.tcgetattr = state().tcgetattr ? fake_tcgetattr : nullptr;
}

void on_tcsetattr(std::function<std::optional<int>(int, int)> hook) {
    const Access access;
    state().tcsetattr = std::move(hook);
    fake_libc.tcsetattr = state().tcsetattr ? fake_tcsetattr : nullptr;
}

}  // namespace fake::libc

namespace fake::detail {

void reset_libc() {
    const Access access;
    fake_libc.access = nullptr;
    fake_libc.alarm = nullptr;
    fake_libc.getpid = nullptr;
    fake_libc.popen = nullptr;
    fake_libc.tcgetattr = nullptr;
    fake_libc.tcsetattr = nullptr;
    fake_libc.time = nullptr;
    fake_libc.ttyname_r = nullptr;
    libc::state() = libc::Libc{};
}

}  // namespace fake::detail
