// SPDX-License-Identifier: Apache-2.0
//
// Calls of the host's functions, and the pause between equal log lines.

#include "host.hpp"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <functional>
#include <mutex>
#include <string_view>

namespace sysdb_lmdb {
namespace {

constexpr std::time_t kQuietSeconds = 10;

struct Logged {
    std::size_t text_hash;
    std::time_t until;
};

constinit std::atomic<const sysdb_host_t *> g_host{nullptr};
constinit std::mutex g_mutex;
constinit std::array<Logged, 16> g_logged{};

// True when this text is to be logged; remembers it in the oldest place.
bool take_turn(std::string_view text) {
    const std::size_t hash = std::hash<std::string_view>{}(text);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::lock_guard lock(g_mutex);
    Logged *place = g_logged.data();
    for (Logged &entry : g_logged) {
        if (entry.until > now.tv_sec && entry.text_hash == hash) {
            return false;
        }
        if (entry.until < place->until) {
            place = &entry;
        }
    }
    *place = {hash, now.tv_sec + kQuietSeconds};
    return true;
}

}  // namespace

void set_host(const sysdb_host_t *host) {
    g_host.store(host, std::memory_order_release);
}

void log(std::uint32_t severity, const char *format, ...) {
    const sysdb_host_t *host = g_host.load(std::memory_order_acquire);
    if (host == nullptr || host->log == nullptr) {
        return;
    }
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (take_turn(text)) {
        host->log(severity, "SYSDB", text);
    }
}

bool value_fits(std::uint32_t datatype, std::string_view value) {
    constexpr std::size_t kSizeWithIt = offsetof(sysdb_host_t, value_fits) + sizeof(sysdb_host_t::value_fits);
    const sysdb_host_t *host = g_host.load(std::memory_order_acquire);
    return host == nullptr || host->size < kSizeWithIt || host->value_fits == nullptr ||
           host->value_fits(datatype, value.data(), static_cast<std::uint32_t>(value.size())) != 0;
}

void lock_log_before_fork() {
    g_mutex.lock();
}

void unlock_log_after_fork() {
    g_mutex.unlock();
}

}  // namespace sysdb_lmdb
