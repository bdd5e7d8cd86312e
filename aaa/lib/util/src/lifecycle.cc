// SPDX-License-Identifier: Apache-2.0
//
// Load, unload and the worker thread.
//
// The unload hook runs under the dynamic loader's lock and joins the worker.
// So nothing that the worker does between its wake-up and its end may need
// that lock: no dlopen or dlsym, no pthread_exit, no thread-local object with
// a destructor. The worker ends by returning.

#include "aaa/lifecycle.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "aaa/result_codes.h"
#include "internal/assert.hpp"
#include "internal/lifecycle.hpp"
#include "internal/memory.hpp"
#include "platform/cerr.h"
#include "platform/event_manager.h"
#include "platform/logging.h"
#include "platform/node.h"

#pragma weak event_manager_destroy  // of all platforms but old ones

namespace aaautil {
namespace {

constexpr char kLifecycleSource[] = "aaa/lib/util/src/lifecycle.c";
constexpr uint32_t kAsyncEvent = 128;
constexpr uint64_t kEventBufferSize = 256;
constexpr int32_t kBlockFailed = -1;

event_manager_t event_manager;
int32_t async_code;
uint64_t event_manager_word;  // the event manager's; never read here

// The worker's handle, 0 when none runs; the worker clears it when it ends.
std::atomic<pthread_t> worker_thread{0};
// The same handle until the thread has been joined or detached. A worker that
// ended early has cleared the one above, but may still execute its last
// instructions, which must not be unmapped.
pthread_t unjoined_thread;
std::atomic<unsigned char> exit_requested{0};

static_assert(std::atomic<pthread_t>::is_always_lock_free && sizeof exit_requested == 1);

// ---- Load ----

void register_result_codes() noexcept {
    const cerrno rc = cerr_register_dll(AAA_FACILITY, "cerrno/libaaa_error.dll");
    if (rc != 0) {
        // The text of the record asks for a name, and gets that of the record.
        kel_errmsg(kel_msg_rec_aaa_dllmain_error_getfn(), 3, "kel_msg_aaa_dllmain_error", cerr_strerror(rc));
    }
}

void start_tracing() noexcept {
    const cerrno rc = aaa_debug_init();
    if (rc != 0) {
        kel_errmsg(kel_msg_rec_aaa_debug_error_getfn(), 3, "Failed to initialize debug module",
                   cerr_strerror(rc));
    }
}

// The async event only serves to make the worker's event_block return.
int32_t wakeup_handler(void *) {
    return 0;
}

// Returns 0 or an errno value. A null event manager counts as made while errno
// is 0, and the event is then attached to the null. errno is not cleared first:
// with a null event manager an error left by an earlier step of loading counts.
int create_event_manager() noexcept {
    event_manager = event_manager_create(0, "/dev/aaa/lib/util", 0, &event_manager_word);
    if (event_manager == nullptr && errno != 0) {
        return errno;
    }
    async_code = event_async_attach(event_manager, kAsyncEvent, wakeup_handler, nullptr);
    return async_code < 0 ? errno : 0;
}

// Blocks signals for other threads to receive, in this thread and so in the
// worker from its first instruction on. The loading thread keeps the mask.
void block_reserved_signals() noexcept {
    sigset_t set;
    int rc = sigemptyset(&set);
    AAA_ASSERT_AT(rc == 0, "rc == 0", kLifecycleSource);
    rc = sigaddset(&set, SIGRTMIN + 6);
    AAA_ASSERT_AT(rc == 0, "rc == 0", kLifecycleSource);
    rc = sigaddset(&set, SIGRTMIN + 10);
    AAA_ASSERT_AT(rc == 0, "rc ==0", kLifecycleSource);  // reports are spelt like this
    rc = pthread_sigmask(SIG_BLOCK, &set, nullptr);
    AAA_ASSERT_AT(rc == 0, "rc == 0", kLifecycleSource);
}

// ---- Worker ----

void block_all_signals() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

void dispatch_events() noexcept {
    const malloc_ptr<void> buffer(std::malloc(kEventBufferSize));
    if (buffer == nullptr) {
        return;
    }
    event_block_ctx_t ctx{};
    ctx.evm = event_manager;
    ctx.buffer = buffer.get();
    ctx.size = kEventBufferSize;
    while (exit_requested.load(std::memory_order_acquire) == 0) {
        if (event_block(&ctx) != kBlockFailed) {
            qm_event_dispatch(&ctx, 0);
        }
    }
}

void *worker(void *) {
    pthread_setname_np(pthread_self(), "aaa_util_th");
    block_all_signals();
    open_event_connections(event_manager);
    dispatch_events();
    aaa_debug(0, "AAA lib Thread about to exit");
    worker_thread.store(0, std::memory_order_release);
    return nullptr;
}

void start_worker() noexcept {
    // In place of the handle until it is known; no thread has this one.
    constexpr pthread_t kStarting = ~pthread_t{0};
    block_reserved_signals();
    worker_thread.store(kStarting, std::memory_order_relaxed);
    pthread_t thread = 0;
    if (pthread_create(&thread, nullptr, worker, nullptr) != 0) {
        worker_thread.store(0, std::memory_order_relaxed);
        return;  // not reported; the handle must not name a thread that does not exist
    }
    unjoined_thread = thread;
    // A worker that has ended by now has cleared the handle, and it stays cleared.
    pthread_t expected = kStarting;
    worker_thread.compare_exchange_strong(expected, thread, std::memory_order_release,
                                          std::memory_order_relaxed);
}

// A forked child has no worker, and the mutex may be locked by a thread that only
// the parent has.
void forget_worker() noexcept {
    worker_thread.store(0, std::memory_order_relaxed);
    unjoined_thread = 0;
    reset_connection_mutex();
}

void load() noexcept {
    _init_libc_globals();
    register_result_codes();
    start_tracing();
    const int error = create_event_manager();
    init_connection_mutex();
    if (error == 0) {
        pthread_atfork(nullptr, nullptr, forget_worker);
        start_worker();
    }
}

// ---- Unload ----

void join_worker(pthread_t thread) noexcept {
    const int result = pthread_join(thread, nullptr);
    unjoined_thread = 0;
    aaa_debug(0, "Thread join of libaaautil.dll %d", result);
}

void detach_worker(pthread_t thread) noexcept {
    pthread_detach(thread);
    unjoined_thread = 0;
}

// Joins a worker that ended early and so cleared its handle, or one that ends without
// a trace. No trace line is written, because the handle names no thread. The join is
// needed because the worker's code is unmapped next.
void join_ended_worker() noexcept {
    if (unjoined_thread != 0) {
        pthread_join(unjoined_thread, nullptr);
        unjoined_thread = 0;
    }
}

void stop_worker() noexcept {
    aaa_debug(0, "Unloading libaaautil.dll");
    aaa_debug(0, "Sending the async event to wakeup");
    // A copy, taken before the worker is told to end: the worker clears the handle,
    // and without the join its code would be unmapped while it runs.
    const pthread_t thread = worker_thread.load(std::memory_order_acquire);
    exit_requested.store(1, std::memory_order_release);
    if (event_send_async(event_manager, async_code, 0) != 0) {
        aaa_debug(0, "Async event failed");
        if (thread != 0) {
            detach_worker(thread);
        }
    } else if (thread != 0) {
        join_worker(thread);
    }
}

void finish() noexcept {
    join_ended_worker();
    worker_thread.store(0, std::memory_order_relaxed);
    aaa_close_sysdb_connections();
    aaa_debug_cleanup();
}

// Makes event_block fail from now on, without the memory that a wake-up needs.
void end_event_manager() noexcept {
    if (event_manager_destroy != nullptr) {
        event_manager_destroy(event_manager);
    } else {
        detach_worker(unjoined_thread);
    }
}

// For an unload whose hook is disabled although the load's was not: the worker ends,
// without a trace, because its code is unmapped next. The rest of the unload is not done.
void end_worker() noexcept {
    exit_requested.store(1, std::memory_order_release);
    const bool ended = worker_thread.load(std::memory_order_acquire) == 0;
    if (!ended && event_send_async(event_manager, async_code, 0) != 0) {
        end_event_manager();
    }
    join_ended_worker();
    worker_thread.store(0, std::memory_order_relaxed);
}

// Not for the callers of set-user-ID programs, who could leave a privileged process
// without its worker.
bool hooks_disabled() noexcept {
    return secure_getenv("NO_DLLMAIN") != nullptr;
}

[[gnu::constructor]] void on_load() noexcept {
    if (!hooks_disabled()) {
        lifecycle(kLoad);
    }
}

// Also runs when the process exits, where other threads may still use the
// library: only dlclose unloads.
[[gnu::destructor]] void on_unload() noexcept {
    const bool disabled = hooks_disabled();
    if ((disabled && unjoined_thread == 0) || __in_dlclose() == 0) {
        return;
    }
    if (disabled) {
        end_worker();
    } else {
        lifecycle(kUnload);
    }
}

}  // namespace

void lifecycle(uint32_t op) noexcept {
    switch (op) {
        case kLoad:
            load();
            break;
        case kUnload:
            stop_worker();
            finish();
            break;
        case kNothing:
            break;
        case kJoin:
            if (const pthread_t thread = worker_thread.load(std::memory_order_acquire); thread != 0) {
                join_worker(thread);
            }
            finish();
            break;
        default:
            std::abort();
    }
}

}  // namespace aaautil
