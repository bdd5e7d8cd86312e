// SPDX-License-Identifier: Apache-2.0
//
// Distinguishes a dlclose of the library from the end of the process.
//
// The library's finaliser runs in both cases and must unload only in the first.
// Exit handlers alone cannot distinguish them: a program's start-up objects are
// initialised before the loader registers its own exit handler, so their handlers
// run after the finalisers, and a flag that they set is too late. The stack is
// reliable: the finaliser was called from dlclose or from exit. Without such a
// frame two flags decide: whether an exit handler has run, and whether the library
// is a start-up object, which dlclose never unloads.

#include "loader.hpp"

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include <dlfcn.h>
#include <unwind.h>

#include "event_manager.hpp"
#include "platform/node.h"
#include "startup_objects.hpp"
#include "sysdb_loader.hpp"

namespace aaaplatform {
namespace {

// An exit handler per load runs before handlers registered in between. More than
// this many only cost memory.
constexpr unsigned kMaxExitHandlers = 32;

std::atomic<bool> g_exiting{false};
std::atomic<bool> g_startup_object{false};
std::atomic<unsigned> g_exit_handlers{0};

struct EndFunctions {
    void *dlclose_function;
    void *exit_function;
};

constinit EndFunctions g_ends{nullptr, nullptr};

// At load: these look-ups fail while the finalisers run at exit.
__attribute__((constructor)) void find_end_functions() {
    void *libc = dlopen("libc.so.6", RTLD_NOLOAD | RTLD_LAZY);
    if (libc == nullptr) {
        return;
    }
    g_ends = {dlsym(libc, "dlclose"), dlsym(libc, "exit")};
    dlclose(libc);
}

enum class Cause { kUnknown, kDlclose, kExit };

_Unwind_Reason_Code look_at_frame(_Unwind_Context *context, void *cause) {
    int before_instruction = 0;
    std::uintptr_t address = _Unwind_GetIPInfo(context, &before_instruction);
    if (address == 0) {
        return _URC_END_OF_STACK;
    }
    if (before_instruction == 0) {
        --address;  // a return address may follow the caller's last byte
    }
    void *function = _Unwind_FindEnclosingFunction(reinterpret_cast<void *>(address));
    if (function == nullptr) {
        return _URC_NO_REASON;
    }
    Cause &result = *static_cast<Cause *>(cause);
    if (function == g_ends.dlclose_function) {
        result = Cause::kDlclose;
    }
    if (function == g_ends.exit_function) {
        result = Cause::kExit;
    }
    return result == Cause::kUnknown ? _URC_NO_REASON : _URC_END_OF_STACK;
}

// The inner frame decides: an exit handler may call dlclose.
Cause cause_on_stack() {
    Cause cause = Cause::kUnknown;
    _Unwind_Backtrace(look_at_frame, &cause);
    return cause;
}

void set_exiting() {
    g_exiting.store(true, std::memory_order_relaxed);
}

bool unloading_now() {
    switch (cause_on_stack()) {
        case Cause::kDlclose:
            return true;
        case Cause::kExit:
            return false;
        case Cause::kUnknown:
            break;
    }
    return !g_exiting.load(std::memory_order_relaxed) && !g_startup_object.load(std::memory_order_relaxed);
}

}  // namespace

const void *object_base(const void *address) {
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

void _init_libc_globals(void) {
    if (g_exit_handlers.fetch_add(1, std::memory_order_relaxed) < kMaxExitHandlers) {
        atexit(set_exiting);
    }
    g_startup_object.store(is_startup_object(__builtin_return_address(0)), std::memory_order_relaxed);
    sysdb_loader_set_unloading(false);
    release_retired_event_managers();
    // This thread either holds the loader's lock already or may take it.
    sysdb_load_now();
}

int __in_dlclose(void) {
    if (!unloading_now()) {
        return 0;
    }
    sysdb_loader_set_unloading(true);
    retire_event_managers(object_base(__builtin_return_address(0)));
    return 1;
}

}  // extern "C"
