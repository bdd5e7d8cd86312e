/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_AAAUTIL_H
#define AAA_AAAUTIL_H

/**
 * @file
 * @brief All functions of libaaautil.so, and the rules that hold for all of them.
 *
 * 1. **Result codes.** Operations return a cerrno: 0 (AAA_OK) is success,
 *    anything else a code of aaa/result_codes.h or, unchanged, the code of a
 *    platform service. A function that returns a pointer returns null on
 *    failure. cerr_strerror() of the platform gives the text of any code.
 * 2. **Null and range.** A null pointer or an out-of-range argument gives
 *    AAA_ERR_INVALID_ARG unless the function says otherwise. "May be null" is
 *    said where it holds. A failed call leaves its outputs untouched unless
 *    the function says otherwise.
 * 3. **Broken invariants** of a list (a count that contradicts the buffers, a
 *    misaligned position) are not codes: the process stops with a report on
 *    standard error that names the expression.
 * 4. **Lengths** are in bytes. The length of a text attribute counts its
 *    terminating NUL where the function that adds it says so; never assume
 *    that a received text ends in NUL.
 * 5. **Ownership** is stated with four words. *Caller frees*: with free() unless
 *    another function is named. *Borrowed*: valid until the named event, not to
 *    be freed. *Copied in*: the callee keeps no reference. *Handed over*: the
 *    named party frees it from then on.
 * 6. **Threads.** Lists, messages and name tables take no locks: one thread
 *    uses a list (or a message record) at a time. Everything that keeps no
 *    state may be called from any thread. The library runs one worker
 *    thread.
 * 7. **Byte order.** Records and values are in host order while in memory and
 *    in network order in packed lists and, where stated, in message headers.
 * 8. **Trust.** aaa_avpair_unpack_msg() and its variants trust the lengths in a
 *    message. They are for bytes from this process or from a peer that is
 *    trusted as this process is.
 * 9. **What the library does not do.** It sends and receives nothing, holds
 *    no policy, keeps no user data and reads no configuration but the system
 *    database and the environment variable NO_DLLMAIN.
 * 10. **Compatibility.** Names, argument order, texts, record layouts and the
 *    oddities that the documentation calls deliberate are kept: callers rely
 *    on them.
 */

#include "aaa/accessors.h"
#include "aaa/alloc.h"
#include "aaa/avpair.h"
#include "aaa/checked.h"
#include "aaa/credentials.h"
#include "aaa/debug_flags.h"
#include "aaa/dictionary.h"
#include "aaa/lifecycle.h"
#include "aaa/lines.h"
#include "aaa/messages.h"
#include "aaa/method_lists.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "aaa/server_keys.h"
#include "aaa/session_packets.h"
#include "aaa/types.h"

#endif /* AAA_AAAUTIL_H */
