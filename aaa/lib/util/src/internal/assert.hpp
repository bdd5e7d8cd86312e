// SPDX-License-Identifier: Apache-2.0
//
// Assertions on the invariants of the list storage. They are never compiled
// out: a list whose chain is broken must stop the process before its bytes
// reach the wire. The expression text and the source path are fixed, because
// operators match them in crash reports; they are literals, independent of
// the text and the place of the checking code.
#pragma once

namespace aaautil {

inline constexpr char kAvpairSource[] = "aaa/lib/util/src/avpair.c";
inline constexpr char kAvpairHeader[] = "aaa/avpair.h";

// Writes "PATH:LINE: PROTOTYPE: Assertion `EXPRESSION' failed." to standard
// error and aborts. Allocates nothing.
[[noreturn, gnu::cold]] void assertion_failed(const char *expression, const char *path, int line,
                                              const char *prototype) noexcept;

}  // namespace aaautil

// NOLINTBEGIN(cppcoreguidelines-macro-usage): needs the line and the prototype of its user
#define AAA_ASSERT_AT(condition, expression, path)                                        \
    do {                                                                                  \
        if (!(condition)) [[unlikely]]                                                    \
            ::aaautil::assertion_failed(expression, path, __LINE__, __PRETTY_FUNCTION__); \
    } while (false)

#define AAA_ASSERT(condition, expression) AAA_ASSERT_AT(condition, expression, ::aaautil::kAvpairSource)
// NOLINTEND(cppcoreguidelines-macro-usage)
