/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_AAAUTIL_HPP
#define AAA_AAAUTIL_HPP

/**
 * @file
 * @brief The C++20 interface of libaaautil: headers alone, over the functions of aaa/aaautil.h.
 *
 * 1. **Results.** What can fail returns aaa::result<T>: a value, or a code that error() gives
 *    as a std::error_code. Nothing throws but result::value(), and the headers compile with
 *    -fno-exceptions and -fno-rtti.
 * 2. **Ownership.** Objects that own something are move-only. One that was moved from fails
 *    with errc::empty_handle.
 * 3. **Spent lists.** A list that was packed, or encoded into a reply, fails with
 *    errc::spent_list until it is cleared.
 * 4. **Trust.** Bytes become lists and messages only through the checked functions of
 *    aaa/checked.h: list::unpack(), decode_request(), decode_reply().
 * 5. **Texts** are given as std::string_view and stored with a NUL. A text with a NUL inside
 *    is refused: readers would take it to end there. So is a literal, where a list takes one. The
 *    names of values are texts with a NUL for any number.
 * 6. **Memory.** Running out of it is errc::no_memory. Bytes of messages and copies of texts
 *    are overwritten before they are released.
 * 7. **Mixing.** native(), adopt() and release() lead to the C interface and back. The
 *    functions that have no counterpart here take and return nothing that has to be owned.
 * 8. **Threads** and the rest of the rules are those of aaa/aaautil.h.
 */

#if __cplusplus < 202002L
#error "aaa/aaautil.hpp needs C++20: compile with -std=c++20, or use aaa/aaautil.h"
#endif

#include "aaa/aaautil.h"
#include "aaa/cpp/accessors.hpp"
#include "aaa/cpp/configuration.hpp"
#include "aaa/cpp/credentials.hpp"
#include "aaa/cpp/decode.hpp"
#include "aaa/cpp/dictionary.hpp"
#include "aaa/cpp/lines.hpp"
#include "aaa/cpp/list.hpp"
#include "aaa/cpp/memory.hpp"
#include "aaa/cpp/message.hpp"
#include "aaa/cpp/method_lists.hpp"
#include "aaa/cpp/names.hpp"
#include "aaa/cpp/replies.hpp"
#include "aaa/cpp/requests.hpp"
#include "aaa/cpp/result.hpp"
#include "aaa/cpp/server_groups.hpp"
#include "aaa/cpp/value.hpp"

#endif /* AAA_AAAUTIL_HPP */
