// SPDX-License-Identifier: Apache-2.0
//
// Finding and loading the sysdb provider.
//
// A client thread of the library may be joined by a dlclose that holds the
// dynamic loader's lock, so dlopen must never run on it: it would wait for the
// lock while the lock's owner waits for it. A detached thread of the platform,
// whose object is never unmapped, calls dlopen; clients wait on a condition for
// "loaded, failed, or unloading".
//
// The provider is loaded once and kept to the end of the process. After a failed
// attempt the next call tries again.

#include "sysdb_loader.hpp"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "log.hpp"
#include "platform/control.h"
#include "sysdb_values.hpp"

namespace aaaplatform {
namespace {

// Time that a client waits for a load in progress during an unload. The unload
// cannot end before the client gives up, and the load possibly not before the
// unload ends.
constexpr long kUnloadingWaitNanoseconds = 50'000'000;

constexpr char kDefaultPath[] = AAA_PKG_ROOT "/lib/libsysdb.so";

std::atomic<const sysdb_provider_t *> g_provider{nullptr};

struct LoadState {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    bool loading = false;
    bool unloading = false;
    unsigned attempts = 0;  // finished ones
    char fault[512] = "";   // of the last of them
};

constinit LoadState g_state;

class Locked {
  public:
    Locked() { pthread_mutex_lock(&g_state.mutex); }
    ~Locked() { pthread_mutex_unlock(&g_state.mutex); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

// Read once: the environment may be changed by other threads later.
const char *provider_path() {
    static const char *const path = [] {
        const char *override_path = secure_getenv("AAA_SYSDB_PROVIDER");
        if (override_path == nullptr || *override_path == '\0') {
            return kDefaultPath + 0;
        }
        const char *copy = strdup(override_path);
        return copy != nullptr ? copy : kDefaultPath + 0;
    }();
    return path;
}

// Of an attempt; logged unless the next attempt, which comes with the first bind, will say the same.
enum class Report { kLog, kKeep };
[[gnu::format(printf, 2, 3)]] void fail(Report report, const char *format, ...) {
    char text[sizeof g_state.fault];
    va_list arguments;
    va_start(arguments, format);
    format_bounded(text, sizeof text, format, arguments);
    va_end(arguments);
    {
        Locked lock;
        std::memcpy(g_state.fault, text, sizeof text);
    }
    if (report == Report::kLog) {
        log(kLogError, "SYSDB", "%s", text);
    }
}

void host_log(std::uint32_t severity, const char *mnemonic, const char *text) {
    log(severity, mnemonic, "%s", text);
}

int host_value_fits(std::uint32_t datatype, const void *value, std::uint32_t length) {
    return sysdb_value_fits(datatype, value, length) ? 1 : 0;
}

constexpr sysdb_host_t kHost = {SYSDB_PROVIDER_ABI, sizeof(sysdb_host_t), host_log, host_value_fits};

// Members of every table; later members are checked where they are used.
constexpr std::size_t kFirstTableSize = offsetof(sysdb_provider_t, apply);

bool usable(const sysdb_provider_t *table, const char *path, Report report) {
    if (table != nullptr && table->abi == SYSDB_PROVIDER_ABI && table->size >= kFirstTableSize) {
        return true;
    }
    fail(report,
         "provider %s implements another version of the interface (this platform has %u); "
         "install the matching provider",
         path, SYSDB_PROVIDER_ABI);
    return false;
}

const sysdb_provider_t *table_of(void *object, const char *path, Report report) {
    void *symbol = dlsym(object, SYSDB_PROVIDER_ENTRY);
    if (symbol == nullptr) {
        fail(report, "%s is not a sysdb provider (no function %s)", path, SYSDB_PROVIDER_ENTRY);
        return nullptr;
    }
    const auto entry = reinterpret_cast<sysdb_provider_entry_t>(symbol);
    const sysdb_provider_t *table = entry(SYSDB_PROVIDER_ABI, &kHost);
    return usable(table, path, report) ? table : nullptr;
}

// Enters the dynamic loader. Two threads may do so at the same time; both
// then get the same object and the same table.
void load_provider(Report report) {
    const char *path = provider_path();
    void *object = dlopen(path, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (object == nullptr) {
        fail(report, "provider cannot be loaded: %s", dlerror());
        return;
    }
    const sysdb_provider_t *table = table_of(object, path, report);
    if (table != nullptr) {
        g_provider.store(table, std::memory_order_release);
    }
}

void *loader_thread(void *) {
    load_provider(Report::kLog);
    Locked lock;
    g_state.loading = false;
    ++g_state.attempts;
    pthread_cond_broadcast(&g_state.changed);
    return nullptr;
}

bool start_loader_thread() {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    pthread_t thread;
    const int rc = pthread_create(&thread, &attributes, loader_thread, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return rc == 0;
}

// Of the clock that no one sets.
timespec unloading_deadline() {
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_nsec += kUnloadingWaitNanoseconds;
    if (deadline.tv_nsec >= 1'000'000'000) {
        deadline.tv_nsec -= 1'000'000'000;
        ++deadline.tv_sec;
    }
    return deadline;
}

// Called with the state locked; returns when the present attempt has ended, or
// when further waiting could delay an unload.
void wait_for_attempt(unsigned finished_before) {
    while (g_state.attempts == finished_before && !g_state.unloading) {
        pthread_cond_wait(&g_state.changed, &g_state.mutex);
    }
    if (g_state.attempts != finished_before) {
        return;
    }
    const timespec deadline = unloading_deadline();
    while (g_state.attempts == finished_before) {
        if (pthread_cond_clockwait(&g_state.changed, &g_state.mutex, CLOCK_MONOTONIC, &deadline) != 0) {
            return;
        }
    }
}

void load_through_thread() {
    Locked lock;
    const unsigned finished_before = g_state.attempts;
    if (!g_state.loading) {
        g_state.loading = start_loader_thread();
        if (!g_state.loading) {
            log(kLogError, "SYSDB", "the thread that loads the provider cannot be started");
            return;
        }
    }
    wait_for_attempt(finished_before);
}

void lock_before_fork() {
    pthread_mutex_lock(&g_state.mutex);
}

void unlock_in_parent() {
    pthread_mutex_unlock(&g_state.mutex);
}

// The child has neither the loading thread nor those that wait for it.
void reset_in_child() {
    g_state.changed = PTHREAD_COND_INITIALIZER;
    g_state.loading = false;
    pthread_mutex_unlock(&g_state.mutex);
}

__attribute__((constructor)) void watch_forks() {
    pthread_atfork(lock_before_fork, unlock_in_parent, reset_in_child);
}

}  // namespace

const sysdb_provider_t *loaded_sysdb_provider() {
    return g_provider.load(std::memory_order_acquire);
}

const sysdb_provider_t *obtain_sysdb_provider() {
    const sysdb_provider_t *loaded = loaded_sysdb_provider();
    if (loaded != nullptr) {
        return loaded;
    }
    // Otherwise every call without a database would start a thread.
    if (access(provider_path(), R_OK) != 0) {
        return nullptr;
    }
    load_through_thread();
    return loaded_sysdb_provider();
}

void sysdb_load_now() {
    if (loaded_sysdb_provider() == nullptr && access(provider_path(), R_OK) == 0) {
        load_provider(Report::kKeep);
    }
}

void sysdb_loader_set_unloading(bool unloading) {
    Locked lock;
    g_state.unloading = unloading;
    pthread_cond_broadcast(&g_state.changed);
}

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" uint32_t aaa_platform_sysdb_fault(char *out, uint32_t size) {
    char text[PATH_MAX + sizeof g_state.fault + 64] = "";
    int length = 0;
    if (loaded_sysdb_provider() == nullptr) {
        const char *path = provider_path();
        char why[sizeof g_state.fault] = "";
        if (access(path, R_OK) != 0) {
            std::snprintf(why, sizeof why, "%s", std::strerror(errno));
        } else {
            Locked lock;
            std::memcpy(why, g_state.fault, sizeof why);
        }
        length =
            std::snprintf(text, sizeof text, "%s%s: %s",
                          path != kDefaultPath ? "AAA_SYSDB_PROVIDER names " : "no provider is installed as ",
                          path, *why != '\0' ? why : "it has not been loaded");
    }
    if (size != 0) {
        std::snprintf(out, size, "%s", text);
    }
    return length > 0 ? static_cast<uint32_t>(length) : 0;
}
