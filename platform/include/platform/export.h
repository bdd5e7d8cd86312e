/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H

/**
 * @file
 * @brief PLATFORM_API marks every function of the platform contract.
 *
 * The rules here apply to all of them. The contract is written for implementers
 * of a host: the library calls exactly the functions that these headers declare,
 * by name and through the dynamic linker, so a definition in the executable takes
 * precedence over the host platform's.
 *
 * 1. **Caller.** "The library" is libaaautil.so. Arguments given as "called as"
 *    are exactly those, and a host may rely on them.
 * 2. **Threads.** Three kinds of thread call: the one that loads or unloads the
 *    library (inside dlopen(), dlclose() or program start, with the dynamic
 *    loader's lock held), the library's worker "aaa_util_th" (all signals
 *    blocked), and any thread of the program. Unless a function names its
 *    caller, expect all three, and several at once.
 * 3. **Unload.** dlclose() holds the loader's lock while it joins the worker.
 *    Functions that the worker calls must therefore never enter the loader: no
 *    dlopen(), dlsym() or dladdr(), no first use of a thread-local with a
 *    destructor, no pthread_exit(), no name service lookups, no exit(). That
 *    concerns the event manager, the connection callbacks' sysdb functions,
 *    logging, tracing and the result-code texts.
 * 4. **Results.** A cerrno is 0 for success; any other code is a failure, which
 *    the library passes on to its callers unchanged and prints with
 *    cerr_strerror(). It tests only the codes that are named.
 * 5. **Out-arguments** point to zeroed storage of at least eight bytes; the
 *    library uses as many as the declared type has.
 * 6. **errno** is the caller's: a function changes it only where its description
 *    says so.
 * 7. **Nulls and lengths** from the library are checked where the headers say
 *    "may be null"; a host should survive others too: programs may call these
 *    functions as well.
 * 8. **Memory.** Blocks that the library frees come from malloc().
 * 9. **Exceptions** must not leave any of the functions.
 */
#if defined(__GNUC__)
#define PLATFORM_API __attribute__((visibility("default")))
#else
#define PLATFORM_API
#endif

#endif /* PLATFORM_EXPORT_H */
