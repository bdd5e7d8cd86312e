// SPDX-License-Identifier: Apache-2.0
//
// Death tests for broken invariants: expression and source path of the report
// are fixed, line and prototype are not.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace aaatest {

inline constexpr char kAvpairHeader[] = "aaa/avpair.h";
inline constexpr char kAvpairSource[] = "aaa/lib/util/src/avpair.c";

// Pattern of the line "PATH:LINE: PROTOTYPE: Assertion `EXPRESSION' failed."
inline std::string assertion_report(std::string_view path, std::string_view expression) {
    const auto quoted = [](std::string_view text) {
        std::string pattern;
        for (const char c : text) {
            if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) {
                pattern += '\\';
            }
            pattern += c;
        }
        return pattern;
    };
    return "(^|\n)" + quoted(path) + ":[0-9]+: [^\n]*\\([^\n]*\\)[^\n]*: Assertion `" + quoted(expression) +
           "' failed\\.\n";
}

}  // namespace aaatest

#define EXPECT_ASSERTION(statement, path, expression) \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), aaatest::assertion_report(path, expression))
