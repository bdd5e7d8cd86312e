// SPDX-License-Identifier: Apache-2.0
//
// A hidden line stays in no other memory than the caller's buffer. Each test runs in a
// child process with a real terminal, and searches the child's whole memory.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "aaa/lines.h"
#include "aaa/result_codes.h"
#include "support/memory_search.hpp"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"
#include "testkit/fake_platform.hpp"

namespace {

constexpr char kPrompt[] = "password: ";

// The text that is typed, and its complement. The text is only in constant memory.
#define SECRET "Tr0ub4dor&3-horse"
constexpr Inverted kSecret{SECRET};

// The caller's buffer.
char g_line[64];

std::string copies() {
    return std::to_string(copies_in_memory(kSecret)) + " copies";
}

// The code, whether the caller got the secret, and how often it is in memory then, and
// after the caller has wiped the own copy.
std::string read_and_search(uint32_t len = sizeof g_line, uint32_t timeout_s = 0) {
    const cerrno rc = aaa_util_read_input(kPrompt, g_line, len, timeout_s, AAA_READ_HIDDEN);
    const std::size_t with_own = copies_in_memory(kSecret);
    const bool got = std::strcmp(g_line, SECRET) == 0;
    explicit_bzero(g_line, sizeof g_line);
    return std::to_string(rc) + (got ? " secret, " : " other, ") + std::to_string(with_own) + ", " + copies();
}

const std::string kReadOnce = "0 secret, 1, 0 copies";

// What a child reports whose memory does not hold the secret yet.
std::string typed(const char *keys, const std::function<std::string()> &body) {
    TerminalProcess child([&body] {
        erase_copies_in_memory(kSecret);
        return body();
    });
    child.expect_shown(kPrompt);
    child.type(keys);
    return child.report();
}

// "tty" still names the terminal when standard input is a pipe.
void keep_terminal_name() {
    static std::string name;
    name = std::string(ttyname(0)) + "\n";
    fake::libc::on_popen([](const char *, const char *) -> void * {
        FILE *const output = tmpfile();
        std::fputs(name.c_str(), output);
        std::rewind(output);
        return output;
    });
}

using Texts = std::initializer_list<const char *>;

// The same, with a pipe as standard input that holds these texts, and then ends or not.
std::string from_pipe(const Texts &texts, const std::function<std::string()> &body, bool ends = true) {
    TerminalProcess child([&] {
        erase_copies_in_memory(kSecret);
        keep_terminal_name();
        int pipe_ends[2] = {-1, -1};
        if (pipe(pipe_ends) != 0 || dup2(pipe_ends[0], 0) != 0) {
            return std::string("no pipe");
        }
        for (const char *text : texts) {
            if (write(pipe_ends[1], text, std::strlen(text)) < 0) {
                return std::string("not written");
            }
        }
        if (ends) {
            close(pipe_ends[1]);
        }
        return body();
    });
    return child.report();
}

// Standard input that is a pipe refuses the settings that are put back.
const std::string kOtherFromPipe = std::to_string(ENOTTY) + " other, 0, 0 copies";
const std::string kFromPipe = std::to_string(ENOTTY) + " secret, 1, 0 copies";

std::string rest_of_input() {
    std::string rest;
    for (int c = getchar(); c != EOF && c != '\n'; c = getchar()) {
        rest += static_cast<char>(c);
    }
    return rest;
}

}  // namespace

TEST(SearchOfMemory, FindsWhatIsThere) {
    const std::string before = copies();
    std::memcpy(g_line, SECRET, sizeof SECRET);
    const std::string with_one = copies();
    explicit_bzero(g_line, sizeof g_line);
    EXPECT_EQ("0 copies", before);
    EXPECT_EQ("1 copies", with_one);
}

// The line stayed in the buffer of standard input until the process ended.
TEST(HiddenLine, TypedAtATerminalIsInNoOtherMemory) {
    EXPECT_EQ(kReadOnce, typed(SECRET "\r", [] { return read_and_search(); }));
}

TEST(HiddenLine, ReadFromAPipeIsInNoOtherMemory) {
    EXPECT_EQ(kFromPipe, from_pipe({SECRET "\n"}, [] { return read_and_search(); }));
}

TEST(HiddenLine, BytesThatFollowAreKept) {
    EXPECT_EQ(kFromPipe + ", next line, and another", from_pipe({SECRET "\nnext line\nand another\n"}, [] {
                  const std::string first = read_and_search();
                  const std::string second = rest_of_input();
                  return first + ", " + second + ", " + rest_of_input();
              }));
}

TEST(HiddenLine, ThatFollowsALineOfTheProgramsIsInNoOtherMemory) {
    EXPECT_EQ("user, " + kFromPipe, from_pipe({"user\n" SECRET "\n"}, [] {
                  const std::string user = rest_of_input();
                  return user + ", " + read_and_search();
              }));
}

TEST(HiddenLine, AtTheEndOfTheInputIsInNoOtherMemory) {
    EXPECT_EQ(kFromPipe, from_pipe({SECRET}, [] { return read_and_search(); }));
}

TEST(HiddenLine, ThatTheTimeLimitEndsIsInNoOtherMemory) {
    EXPECT_EQ(kFromPipe, from_pipe(
                             {SECRET},
                             [] {
                                 fake::libc::on_alarm([](unsigned seconds) {
                                     const timeval interval{0, seconds != 0 ? 20000 : 0};
                                     const itimerval timer{interval, interval};
                                     setitimer(ITIMER_REAL, &timer, nullptr);
                                     return 0u;
                                 });
                                 return read_and_search(sizeof g_line, 1);
                             },
                             false));
}

TEST(HiddenLine, ThatIsCancelledIsInNoMemory) {
    EXPECT_EQ("0 other, 0, 0 copies", typed(SECRET "\x03\r", [] { return read_and_search(); }));
}

TEST(HiddenLine, ThatIsErasedIsInNoMemory) {
    const std::string erased(sizeof SECRET - 1, '\b');
    EXPECT_EQ(kOtherFromPipe, from_pipe({SECRET, erased.c_str(), "x\n"}, [] { return read_and_search(); }));
}

// The buffer has 4096 bytes. It is filled a second time, with less, before the line ends.
TEST(HiddenLine, InABufferThatIsFilledTwiceIsInNoOtherMemory) {
    const std::string first(4096 - sizeof SECRET - 4, 'a');
    EXPECT_EQ("b, " + std::to_string(ENOTTY) + " 0 copies",
              from_pipe({first.c_str(), "\n", SECRET, "bb", "bbbb\b\b\b\b\b", "\n"}, [] {
                  rest_of_input();
                  const cerrno rc = aaa_util_read_input(kPrompt, g_line, sizeof g_line, 0, AAA_READ_HIDDEN);
                  const std::string last(1, g_line[sizeof SECRET - 1]);
                  explicit_bzero(g_line, sizeof g_line);
                  return last + ", " + std::to_string(rc) + " " + copies();
              }));
}

// The first part is stored; the rest belongs to the next read.
TEST(HiddenLine, ThatIsTooLongIsWipedAsFarAsItWasRead) {
    EXPECT_EQ(std::to_string(ENOTTY) + " other, 0, 0 copies, " + &SECRET[8], from_pipe({SECRET "\n"}, [] {
                  const std::string first = read_and_search(8);
                  return first + ", " + rest_of_input();
              }));
}

// In the line editor's way nothing is hidden, but the buffer of standard input is wiped too.
TEST(EditedLine, LeavesNoCopyInTheBufferOfStandardInput) {
    EXPECT_EQ("user, 1, 0 copies", from_pipe({"user\n" SECRET "\n"}, [] {
                  const std::string user = rest_of_input();
                  // An editor that reads what the C library has read ahead.
                  fake::before("qm_getline",
                               [] { EXPECT_NE(nullptr, std::fgets(g_line, sizeof g_line, stdin)); });
                  fake::push_line("x\n");
                  char line[8];
                  aaa_util_read_input(kPrompt, line, sizeof line, 0, 0);
                  const std::size_t with_own = copies_in_memory(kSecret);
                  explicit_bzero(g_line, sizeof g_line);
                  return user + ", " + std::to_string(with_own) + ", " + copies();
              }));
}

// A character that the program pushed back is in another block than the buffer.
TEST(HiddenLine, AfterAPushedBackCharacterIsReadWhole) {
    EXPECT_EQ("a, X, whole, 0 copies, rest", from_pipe({"a" SECRET "\nrest\n"}, [] {
                  std::string text(1, static_cast<char>(getchar()));
                  ungetc('X', stdin);
                  aaa_util_read_input(kPrompt, g_line, sizeof g_line, 0, AAA_READ_HIDDEN);
                  text += std::string(", ") + g_line[0];
                  text += std::strcmp(g_line + 1, SECRET) == 0 ? ", whole, " : ", other, ";
                  explicit_bzero(g_line, sizeof g_line);
                  text += copies();
                  return text + ", " + rest_of_input();
              }));
}

TEST(HiddenLine, AnEmptyOneThatTheProgramPushedBackLeavesTheRest) {
    EXPECT_EQ("0 other, 0, 0 copies, rest", from_pipe({"arest\n"}, [] {
                  getchar();
                  ungetc('\n', stdin);
                  const std::string text = read_and_search();
                  return "0" + text.substr(text.find(' ')) + ", " + rest_of_input();
              }));
}

// The mapping of a file cannot be written.
TEST(HiddenLine, FromAMappedFileIsReadWithoutACrash) {
    const TempDir dir;
    const std::string path = dir.write("input", "a line\nrest\n");
    EXPECT_EQ("a line, rest", from_pipe({}, [&path] {
                  if (freopen(path.c_str(), "rm", stdin) == nullptr) {
                      return std::string("not opened");
                  }
                  aaa_util_read_input(kPrompt, g_line, sizeof g_line, 0, AAA_READ_HIDDEN);
                  return std::string(g_line) + ", " + rest_of_input();
              }));
}
