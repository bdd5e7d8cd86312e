// SPDX-License-Identifier: Apache-2.0
//
// Prompted input as a login program gets it: the library on the real platform,
// with the real line editor, in a child process whose controlling terminal is a
// real pseudo-terminal. Only the alarm is replaced: it fires repeatedly after the
// time limit, because on a busy machine a single signal could come before the read.

#include "aaa/lines.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <string>

#include "aaa/result_codes.h"
#include "support/terminal_process.hpp"

// The program's own definition takes precedence over libc's.
extern "C" unsigned alarm(unsigned seconds) noexcept {
    const itimerval timer{{0, seconds != 0 ? 100000 : 0}, {static_cast<time_t>(seconds), 0}};
    itimerval before{};
    setitimer(ITIMER_REAL, &timer, &before);
    return static_cast<unsigned>(before.it_value.tv_sec);
}

namespace {

constexpr char kPrompt[] = "Username: ";
constexpr uint32_t kHidden = AAA_READ_HIDDEN;
constexpr uint32_t kEditor = 0;

std::string name_of(cerrno rc) {
    switch (rc) {
        case AAA_OK:
            return "ok";
        case AAA_ERR_TIMEOUT:
            return "time-out";
        case AAA_ERR_INVALID_CLIENT_DATA:
            return "bad client data";
        default:
            return std::to_string(rc);
    }
}

// "code [text]" of one call, and whether the terminal's settings differ afterwards.
std::string read_once(uint32_t flags, uint32_t len = 16, uint32_t timeout_s = 0) {
    termios before{};
    termios after{};
    tcgetattr(0, &before);
    std::string buf(len + 1, '\0');
    const cerrno rc = aaa_util_read_input(kPrompt, buf.data(), len, timeout_s, flags);
    tcgetattr(0, &after);
    const bool same = before.c_iflag == after.c_iflag && before.c_oflag == after.c_oflag &&
                      before.c_cflag == after.c_cflag && before.c_lflag == after.c_lflag &&
                      std::memcmp(before.c_cc, after.c_cc, sizeof before.c_cc) == 0;
    return name_of(rc) + " [" + std::string(buf.c_str()) + "]" + (same ? "" : ", settings differ");
}

// The prompt is written before the editor takes over the terminal. Until then
// Ctrl-C is a signal and Ctrl-D the end of a line. After its time limit, a read
// has already restored the terminal.
void wait_for_editor(const TerminalProcess &child) {
    while ((child.settings().c_lflag & ICANON) != 0 && !child.has_reported()) {
        sched_yield();
    }
}

std::string typed(const std::string &keys, uint32_t flags, uint32_t len = 16, uint32_t timeout_s = 0) {
    TerminalProcess child([=] { return read_once(flags, len, timeout_s); });
    child.expect_shown(kPrompt);
    if (flags == kEditor && !keys.empty()) {
        wait_for_editor(child);
    }
    child.type(keys);
    return child.report();
}

std::string shown_after_prompt(const TerminalProcess &child) {
    const std::size_t at = child.shown().find(kPrompt);
    return at != std::string::npos ? child.shown().substr(at + std::strlen(kPrompt)) : "no prompt";
}

}  // namespace

TEST(PromptedInput, BothPathsTakeALine) {
    EXPECT_EQ(typed("alice\r", kEditor), "ok [alice]");
    EXPECT_EQ(typed("secret\r", kHidden), "ok [secret]");
}

TEST(PromptedInput, OnlyTheEditorShowsWhatIsTyped) {
    TerminalProcess name([] { return read_once(kEditor); });
    name.expect_shown(kPrompt);
    name.type("alice\r");
    EXPECT_EQ(name.report(), "ok [alice]");
    name.expect_shown("alice");

    TerminalProcess password([] { return read_once(kHidden); });
    password.expect_shown(kPrompt);
    password.type("secret\r");
    EXPECT_EQ(password.report(), "ok [secret]");
    EXPECT_EQ(shown_after_prompt(password).find_first_of("secret"), std::string::npos);
}

TEST(PromptedInput, ALoginAsksForBothInTurn) {
    TerminalProcess child([] {
        const std::string name = read_once(kEditor);
        return name + " " + read_once(kHidden | AAA_READ_LINEFEED);
    });
    child.expect_shown(kPrompt);
    child.type("alice\r");
    child.expect_shown(std::string("\r\n") + kPrompt);
    child.type("secret\r");
    EXPECT_EQ(child.report(), "ok [alice] ok [secret]");
}

TEST(PromptedInput, ControlCCancels) {
    EXPECT_EQ(typed("sec\x03\r", kHidden), "ok []");
    EXPECT_EQ(typed("ali\x03", kEditor), "bad client data []");
}

TEST(PromptedInput, EraseTakesACharacterBack) {
    EXPECT_EQ(typed("alicf\x7f"
                    "e\r",
                    kEditor),
              "ok [alice]");
    EXPECT_EQ(typed("secrf\x7f"
                    "et\r",
                    kHidden),
              "ok [secret]");
    EXPECT_EQ(typed("secrf\bet\r", kHidden), "ok [secret]");
}

TEST(PromptedInput, TenCharactersIntoEight) {
    EXPECT_EQ(typed("abcdefghij\r", kEditor, 8), "bad client data []");
    EXPECT_EQ(typed("abcdefghij\r", kHidden, 8), "ok [abcdefg]");
    EXPECT_EQ(typed("abcdefgh\r", kEditor, 8), "ok [abcdefgh]");
}

TEST(PromptedInput, AnEmptyLine) {
    EXPECT_EQ(typed("\r", kEditor), "ok []");
    EXPECT_EQ(typed("\r", kHidden), "ok []");
}

TEST(PromptedInput, TheEndOfTheInput) {
    EXPECT_EQ(typed("\x04", kEditor), "bad client data []");
    EXPECT_EQ(typed("\x04", kHidden), "ok []");
    EXPECT_EQ(typed("abc\x04\x04", kHidden), "ok [abc]");
}

TEST(PromptedInput, TheTimeLimitEndsBoth) {
    EXPECT_EQ(typed("", kEditor, 16, 1), "time-out []");
    EXPECT_EQ(typed("", kHidden, 16, 1), "time-out []");
    EXPECT_EQ(typed("unfinished", kEditor, 16, 1), "time-out []");
}

TEST(PromptedInput, AnAnswerInTimeLeavesNoAlarmAndNoHandler) {
    for (const uint32_t flags : {kEditor, kHidden}) {
        TerminalProcess child([flags] {
            const std::string text = read_once(flags, 16, 3600);
            struct sigaction action {};
            sigaction(SIGALRM, nullptr, &action);
            itimerval timer{};
            getitimer(ITIMER_REAL, &timer);
            return text + (action.sa_handler == SIG_DFL ? "" : ", a handler") +
                   (timer.it_value.tv_sec == 0 ? "" : ", an alarm");
        });
        child.expect_shown(kPrompt);
        child.type("answer\r");
        EXPECT_EQ(child.report(), "ok [answer]");
    }
}

TEST(PromptedInput, WithoutATerminal) {
    TerminalProcess hidden([] { return read_once(kHidden); }, false);
    EXPECT_EQ(hidden.report(), "ok []");
    TerminalProcess editor([] { return read_once(kEditor); }, false);
    EXPECT_EQ(editor.report(), "bad client data []");
}
