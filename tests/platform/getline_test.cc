// SPDX-License-Identifier: Apache-2.0
//
// The line editor at a real pseudo-terminal and on pipes.

#include <gtest/gtest.h>
#include <locale.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/terminal.h"
#include "support/terminal_process.hpp"

namespace {

constexpr char kPrompt[] = "name> ";

void ignore_signal(int) {}

void catch_signal(int signal) {
    struct sigaction action {};
    action.sa_handler = ignore_signal;
    sigaction(signal, &action, nullptr);
}

// The timer fires repeatedly: on a busy machine the limit may pass before the
// read begins, which would then have no limit.
void start_time_limit(int ms) {
    catch_signal(SIGALRM);
    const timeval limit{ms / 1000, (ms % 1000) * 1000};
    const itimerval timer{limit, limit};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

// "line|ok|errno" of one read.
std::string read_with(void *handle) {
    int ok = 1;
    errno = EINTR;  // the previous value must not appear in the result
    const char *line = qm_getline(handle, kPrompt, "", &ok);
    const int error = errno;
    return std::string(line != nullptr ? line : "(null)") + "|" + std::to_string(ok) + "|" +
           std::to_string(error);
}

std::string read_once() {
    void *handle = getline_init();
    if (handle == nullptr) {
        return "no handle";
    }
    gl_ret_on_eintr_enable(handle);
    std::string result = read_with(handle);
    getline_free(handle);
    return result;
}

// Result of reading one line typed at a terminal.
std::string typed(
    const std::string &keys, const std::function<void()> &before = [] {}) {
    TerminalProcess child([&] {
        before();
        return read_once();
    });
    child.expect_shown(kPrompt);
    child.type(keys);
    return child.report();
}

// Stops a child process until the test opens the gate.
class Gate {
  public:
    Gate() { EXPECT_EQ(0, pipe2(ends_, O_CLOEXEC)); }
    ~Gate() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;

    void open() { EXPECT_EQ(1, write(ends_[1], "", 1)); }
    void pass() {
        char byte;
        EXPECT_EQ(1, read(ends_[0], &byte, 1));
    }

  private:
    int ends_[2] = {-1, -1};
};

const std::string kTimedOut = "(null)|1|" + std::to_string(EINTR);

// Replaces standard input with a pipe that has the given contents.
void feed_stdin(const std::string &contents, bool leave_open = false) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    fcntl(fds[1], F_SETPIPE_SZ, 1 << 20);
    ASSERT_EQ(static_cast<ssize_t>(contents.size()), write(fds[1], contents.data(), contents.size()));
    dup2(fds[0], 0);
    close(fds[0]);
    if (!leave_open) {
        close(fds[1]);
    }
}

std::string piped(const std::string &contents, const std::function<std::string()> &body = read_once) {
    TerminalProcess child(
        [&] {
            feed_stdin(contents);
            return body();
        },
        false);
    return child.report();
}

// Whether the heap holds a text in the editor's form. The wide text to compare
// is on the stack. Called in a separate process, in which nothing else allocates.
// The part by which the heap has grown in that process is a separate mapping.
bool heap_holds(const char *text) {
    wchar_t wide[64] = {};
    const size_t size = std::strlen(text) * sizeof *wide;
    std::copy(text, text + std::strlen(text), wide);
    bool found = false;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        uintptr_t from = 0;
        uintptr_t to = 0;
        if (line.find("[heap]") != std::string::npos &&
            std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR, &from, &to) == 2) {
            found |= memmem(reinterpret_cast<const void *>(from), to - from, wide, size) != nullptr;
        }
    }
    return found;
}

// A sanitizer's heap is elsewhere and cannot be read in this way.
bool heap_can_be_read() {
    const auto sample = std::make_unique<std::wstring>(L"found whatever happens");
    return heap_holds("found whatever happens");
}

}  // namespace

// ---- handle --------------------------------------------------------------------

TEST(Getline, TakesTheOptionsThatTheLibrarySets) {
    void *handle = getline_init();
    ASSERT_NE(nullptr, handle);
    const uint32_t zero = 0;
    for (const uint32_t option : {4u, 2u, 3u, 5u, 6u, 7u}) {
        EXPECT_EQ(0u, getline_configure(handle, option, 4, &zero)) << option;
    }
    getline_free(handle);
}

TEST(Getline, RefusesOtherOptionsSizesAndNulls) {
    void *handle = getline_init();
    ASSERT_NE(nullptr, handle);
    const uint32_t zero = 0;
    for (const uint32_t option : {0u, 1u, 8u, 0xffffffffu}) {
        EXPECT_EQ(static_cast<cerrno>(EINVAL), getline_configure(handle, option, 4, &zero)) << option;
    }
    EXPECT_EQ(static_cast<cerrno>(EINVAL), getline_configure(handle, 2, 8, &zero));
    EXPECT_EQ(static_cast<cerrno>(EINVAL), getline_configure(handle, 2, 4, nullptr));
    EXPECT_EQ(static_cast<cerrno>(EINVAL), getline_configure(nullptr, 2, 4, &zero));
    getline_free(handle);
}

TEST(Getline, TakesANullHandle) {
    int ok = 1;
    gl_ret_on_eintr_enable(nullptr);
    getline_free(nullptr);
    EXPECT_EQ(nullptr, qm_getline(nullptr, "", "", &ok));
    EXPECT_EQ(EINVAL, errno);
}

// ---- at a terminal ---------------------------------------------------------------

TEST(Getline, ReturnsTheLineWithItsLineFeed) {
    EXPECT_EQ("alice\n|1|0", typed("alice\r"));
}

TEST(Getline, EditsTheLine) {
    EXPECT_EQ("alice\n|1|0", typed("alixx\x7f\x08"
                                   "ce\r"));
    EXPECT_EQ("alice\n|1|0", typed("lice\x01"
                                   "a\r"));
    EXPECT_EQ("bob\n|1|0", typed("alice\x15"
                                 "bob\r"));
}

TEST(Getline, GivesAnEmptyLineForAnEmptyLine) {
    EXPECT_EQ("\n|1|0", typed("\r"));
}

TEST(Getline, StartsWithTheGivenText) {
    TerminalProcess child([] {
        void *handle = getline_init();
        int ok = 1;
        const char *line = qm_getline(handle, kPrompt, "ali", &ok);
        std::string result = line != nullptr ? line : "(null)";
        getline_free(handle);
        return result;
    });
    child.expect_shown("ali");
    child.type("ce\r");
    EXPECT_EQ("alice\n", child.report());
}

TEST(Getline, ControlCCancelsTheLineAndSparesTheProcess) {
    EXPECT_EQ("(null)|0|0", typed("ali\x03"));
    EXPECT_EQ("(null)|0|0", typed("\x03"));
}

TEST(Getline, ReadsTheNextLineAfterACancelledOne) {
    TerminalProcess child([] {
        void *handle = getline_init();
        const std::string first = read_with(handle);
        const std::string second = read_with(handle);
        getline_free(handle);
        return first + " " + second;
    });
    child.expect_shown(kPrompt);
    child.type("ali\x03");
    child.type("bob\r");
    EXPECT_EQ("(null)|0|0 bob\n|1|0", child.report());
}

TEST(Getline, ControlDEndsTheInputOnlyOnAnEmptyLine) {
    EXPECT_EQ("(null)|1|0", typed("\x04"));
    EXPECT_EQ("alice\n|1|0", typed("alice\x04\r"));
}

TEST(Getline, KeysThatSendSignalsDoNothingElsewhere) {
    EXPECT_EQ("alice\n|1|0", typed("al\x1aic\x1c"
                                   "e\r"));
}

TEST(Getline, OffersNoCommandsOfTheEditor) {
    EXPECT_EQ("echo\n|1|0", typed("\x1bx"
                                  "echo\r"));
}

TEST(Getline, RestoresTheTerminal) {
    for (const char *keys : {"alice\r", "\x03", "\x04"}) {
        TerminalProcess child([] { return read_once(); });
        const termios &before = child.settings_at_start();
        child.expect_shown(kPrompt);
        EXPECT_EQ(0u, child.settings().c_lflag & ICANON);
        child.type(keys);
        child.report();
        const termios after = child.settings();
        EXPECT_EQ(before.c_lflag, after.c_lflag);
        EXPECT_EQ(before.c_iflag, after.c_iflag);
        EXPECT_EQ(before.c_oflag, after.c_oflag);
        EXPECT_EQ(0, memcmp(before.c_cc, after.c_cc, sizeof before.c_cc));
    }
}

TEST(Getline, WorksWithoutAKnownTerminalType) {
    EXPECT_EQ("alice\n|1|0", typed("alice\r", [] { unsetenv("TERM"); }));
    EXPECT_EQ("alice\n|1|0", typed("alice\r", [] { setenv("TERM", "no-such-terminal", 1); }));
    EXPECT_EQ("alice\n|1|0", typed("alice\r", [] { setenv("TERM", "dumb", 1); }));
}

// ---- characters ------------------------------------------------------------------

TEST(Getline, PassesCharactersOfTheLocale) {
    const auto utf8 = [] { setlocale(LC_ALL, "C.UTF-8"); };
    EXPECT_EQ("caf\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\n|1|0",
              typed("caf\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\r", utf8));
    EXPECT_EQ("caf\n|1|0", typed("caf\xc3\xa9\x7f\r", utf8)) << "erase takes the whole character";
}

TEST(Getline, PassesBytesThatAreNotCharacters) {
    const auto utf8 = [] { setlocale(LC_ALL, "C.UTF-8"); };
    for (const char *text : {"a\xff"
                             "b",
                             "a\xc3"
                             "b",
                             "\xe2\x82", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf5"}) {
        EXPECT_EQ(std::string(text) + "\n|1|0", typed(std::string(text) + "\r", utf8)) << text;
        EXPECT_EQ(std::string(text) + "\n|1|0", typed(std::string(text) + "\r")) << text;
    }
}

// ---- time limit and signals --------------------------------------------------------

TEST(Getline, TimeLimitEndsTheRead) {
    TerminalProcess child([] {
        start_time_limit(100);
        return read_once();
    });
    EXPECT_EQ(kTimedOut, child.report());
}

TEST(Getline, TimeLimitEndsAReadWithTextTyped) {
    Gate typed;
    TerminalProcess child([&typed] {
        typed.pass();
        start_time_limit(100);
        return read_once();
    });
    child.type("ali");  // in the terminal before the limit begins
    typed.open();
    EXPECT_EQ(kTimedOut, child.report());
    EXPECT_EQ(child.settings_at_start().c_lflag, child.settings().c_lflag);
}

// The alarm's signal goes to the main thread, which waits for the reader.
TEST(Getline, TimeLimitEndsTheReadInAnyThread) {
    TerminalProcess child([] {
        start_time_limit(100);
        std::string result;
        std::thread reader([&] {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_BLOCK, &all, nullptr);
            result = read_once();
        });
        reader.join();
        return result;
    });
    EXPECT_EQ(kTimedOut, child.report());
}

TEST(Getline, TimeLimitEndsAReadFromAPipe) {
    TerminalProcess child(
        [] {
            feed_stdin("ali", true);
            start_time_limit(100);
            return read_once();
        },
        false);
    EXPECT_EQ(kTimedOut, child.report());
}

TEST(Getline, OtherSignalsDoNotEndAReadWithATimeLimit) {
    TerminalProcess child([] {
        catch_signal(SIGUSR1);
        start_time_limit(60000);
        return read_once();
    });
    child.expect_shown(kPrompt);
    child.type("ali");
    child.expect_shown("ali");
    kill(child.pid(), SIGUSR1);
    child.type("ce\r");
    EXPECT_EQ("alice\n|1|0", child.report());
}

TEST(Getline, ASignalEndsAReadWithoutATimeLimit) {
    TerminalProcess child([] {
        catch_signal(SIGUSR1);
        return read_once();
    });
    child.expect_shown(kPrompt);
    EXPECT_EQ(kTimedOut, child.report_after_signals(SIGUSR1));
}

TEST(Getline, ASignalDoesNotEndAReadUnlessAskedTo) {
    TerminalProcess child([] {
        catch_signal(SIGUSR1);
        void *handle = getline_init();
        std::string result = read_with(handle);
        getline_free(handle);
        return result;
    });
    child.expect_shown(kPrompt);
    kill(child.pid(), SIGUSR1);
    child.type("alice\r");
    EXPECT_EQ("alice\n|1|0", child.report());
}

// ---- pipes -------------------------------------------------------------------------

TEST(Getline, EndOfInputOnAPipeIsNoLine) {
    EXPECT_EQ("(null)|1|0", piped(""));
}

TEST(Getline, ReadsALineFromAPipe) {
    EXPECT_EQ("alice\n|1|0", piped("alice\n"));
}

TEST(Getline, TakesALastLineWithoutALineFeed) {
    EXPECT_EQ("alice|1|0", piped("alice"));
}

TEST(Getline, LeavesTheRestOfThePipeToOthers) {
    EXPECT_EQ("alice\n|1|0 [secret\n]", piped("alice\nsecret\n", [] {
                  std::string first = read_once();
                  char rest[64];
                  const ssize_t n = read(0, rest, sizeof rest);
                  return first + " [" + std::string(rest, n > 0 ? static_cast<size_t>(n) : 0) + "]";
              }));
}

TEST(Getline, TakesWhatTheProgramHasReadAhead) {
    EXPECT_EQ("f alice\n|1|0", piped("falice\n", [] {
                  const char first = static_cast<char>(getchar());
                  return std::string(1, first) + " " + read_once();
              }));
}

TEST(Getline, EndsALineThatNeverEnds) {
    const std::string result = piped(std::string(200000, 'a'));
    EXPECT_EQ(std::string(65536, 'a') + "|1|0", result);
}

TEST(Getline, LeavesNoLineInTheEditorsBuffer) {
    const auto left = [](const std::string &input) {
        return piped(input, [] {
            if (!heap_can_be_read()) {
                return std::string("heap elsewhere");
            }
            void *handle = getline_init();
            const std::string first = read_with(handle);
            const bool before = heap_holds("open sesame");
            getline_free(handle);
            return first + (before || heap_holds("open sesame") ? " left" : " gone");
        });
    };
    const std::string result = left("open sesame\n");
    if (result == "heap elsewhere") {
        GTEST_SKIP() << "no mapping is named the heap";
    }
    EXPECT_EQ("open sesame\n|1|0 gone", result);
    EXPECT_EQ("open sesame|1|0 gone", left("open sesame"));
}
