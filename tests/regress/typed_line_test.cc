// SPDX-License-Identifier: Apache-2.0
//
// Lines that are typed at a real host stay in no other memory than the caller's buffer:
// neither in the buffer of standard input nor in the line editor, which holds wide
// characters.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "aaa/lines.h"
#include "support/memory_search.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr char kPrompt[] = "line: ";

#define SECRET "Tr0ub4dor&3-horse"
constexpr Inverted kBytes{SECRET};
constexpr Inverted kWide{
    "T\0\0\0r\0\0\0"
    "0\0\0\0u\0\0\0b\0\0\0"
    "4\0\0\0d\0\0\0o\0\0\0r\0\0\0&\0\0\0"};

char g_line[64];

std::size_t copies() {
    return copies_in_memory(kBytes) + copies_in_memory(kWide);
}

// The code, whether the line came, and how often it is in memory besides.
std::string read_and_search(uint32_t flags) {
    const cerrno rc = aaa_util_read_input(kPrompt, g_line, sizeof g_line, 0, flags);
    const bool got = std::strcmp(g_line, SECRET) == 0;
    explicit_bzero(g_line, sizeof g_line);
    return std::to_string(rc) + (got ? " the line, " : " another line, ") + std::to_string(copies());
}

std::string typed(uint32_t flags) {
    TerminalProcess child([flags] {
        erase_copies_in_memory(kBytes);
        return read_and_search(flags);
    });
    child.expect_shown(kPrompt);
    child.type(SECRET "\r");
    return child.report();
}

}  // namespace

TEST(TypedLine, ThatIsHiddenIsInNoOtherMemory) {
    EXPECT_EQ("0 the line, 0", typed(AAA_READ_HIDDEN));
}

TEST(TypedLine, ThatIsEditedIsInNoOtherMemory) {
    EXPECT_EQ("0 the line, 0", typed(0));
}

TEST(TypedLine, ThatTheEditorReadsFromAPipeIsInNoOtherMemory) {
    TerminalProcess child([] {
        erase_copies_in_memory(kBytes);
        int ends[2];
        const ssize_t size = sizeof SECRET;
        if (pipe(ends) != 0 || dup2(ends[0], 0) != 0 || write(ends[1], SECRET "\n", sizeof SECRET) != size) {
            return std::string("no pipe");
        }
        return read_and_search(0);
    });
    EXPECT_EQ("0 the line, 0", child.report());
}

// The searches above can find something.
TEST(TypedLine, ThatIsInMemoryIsFound) {
    const std::size_t before = copies();
    std::memcpy(g_line, SECRET, sizeof SECRET);
    EXPECT_EQ(before + 1, copies());
    for (std::size_t i = 0; i < 4 * 12; ++i) {
        g_line[i] = i % 4 == 0 ? SECRET[i / 4] : '\0';
    }
    EXPECT_EQ(before + 1, copies());
    explicit_bzero(g_line, sizeof g_line);
}
