// SPDX-License-Identifier: Apache-2.0
//
// Prompted input. The line-editor path runs in this process on the scripted
// editor. The terminal path runs in child processes, each of which has a real
// pseudo-terminal as standard input and output and as controlling terminal;
// this process has the other end, reads the prompt and types.

#include "aaa/lines.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "support/terminal_process.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;

constexpr char kPrompt[] = "password: ";
constexpr uint32_t kLength = 12;  // what most tests offer
constexpr std::size_t kGuard = 4;

// ---- results as text ----------------------------------------------------------

std::string name_of(cerrno rc) {
    switch (rc) {
        case AAA_OK:
            return "ok";
        case AAA_ERR_INVALID_ARG:
            return "invalid argument";
        case AAA_ERR_TIMEOUT:
            return "time-out";
        case AAA_ERR_INVALID_CLIENT_DATA:
            return "bad client data";
        case AAA_ERR_OS:
            return "os";
        default:
            return rc < 0x1000 ? strerrorname_np(static_cast<int>(rc)) : std::to_string(rc);
    }
}

std::string visible(std::string bytes) {
    std::replace(bytes.begin(), bytes.end(), '\0', '.');
    return bytes;
}

// One call: "code [buffer]", a zero byte as '.', an untouched one as '#'.
std::string read_input(uint32_t flags, uint32_t len = kLength, uint32_t timeout_s = 0,
                       const char *prompt = kPrompt) {
    std::string buf(len + kGuard, '#');
    const cerrno rc = aaa_util_read_input(prompt, buf.data(), len, timeout_s, flags);
    return name_of(rc) + " [" + visible(buf) + "]";
}

std::string read_hidden(uint32_t len = kLength, uint32_t timeout_s = 0) {
    return read_input(AAA_READ_HIDDEN, len, timeout_s);
}

// The same for text that fits: the expected buffer of kLength bytes.
std::string result(const std::string &code, const std::string &text, uint32_t len = kLength) {
    std::string buf(len, '.');
    buf.replace(0, text.size(), text);
    return code + " [" + buf + std::string(kGuard, '#') + "]";
}

std::string joined(const Lines &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += line + "\n";
    }
    return text;
}

// ---- terminal settings ---------------------------------------------------------

// Settings that differ from those of hidden input in every respect.
termios unlike_hidden() {
    termios t{};
    tcgetattr(0, &t);
    t.c_oflag &= ~static_cast<tcflag_t>(OPOST | ONLCR);
    t.c_iflag |= IXON | IXOFF;
    t.c_iflag &= ~static_cast<tcflag_t>(ICRNL);
    t.c_lflag |= ISIG | ECHO;
    t.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHOE);
    return t;
}

termios hidden_from(termios t) {
    t.c_oflag |= OPOST | ONLCR;
    t.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF);
    t.c_iflag |= ICRNL;
    t.c_lflag &= ~static_cast<tcflag_t>(ISIG | ECHO);
    t.c_lflag |= ICANON | ECHOE;
    return t;
}

std::string difference(const termios &a, const termios &b) {
    const bool same_keys = std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
    return a.c_iflag != b.c_iflag   ? "input flags differ"
           : a.c_oflag != b.c_oflag ? "output flags differ"
           : a.c_lflag != b.c_lflag ? "local flags differ"
           : a.c_cflag != b.c_cflag ? "control flags differ"
           : !same_keys             ? "keys differ"
                                    : "same";
}

termios settings_of(int fd) {
    termios t{};
    tcgetattr(fd, &t);
    return t;
}

// ---- the time limit ------------------------------------------------------------

// In place of alarm(): starts a timer that goes on firing, so that no moment
// between the start and the read can lose the only signal.
unsigned ticking_alarm(unsigned seconds) {
    const timeval interval{0, seconds != 0 ? 20000 : 0};
    const itimerval timer{interval, interval};
    setitimer(ITIMER_REAL, &timer, nullptr);
    return 0;
}

void use_ticking_alarm() {
    fake::libc::on_alarm(ticking_alarm);
}

struct sigaction alarm_action() {
    struct sigaction action {};
    sigaction(SIGALRM, nullptr, &action);
    return action;
}

void own_handler(int) {}

void install_own_handler() {
    struct sigaction action {};
    action.sa_handler = own_handler;
    sigaction(SIGALRM, &action, nullptr);
}

std::string handler_name() {
    const auto handler = alarm_action().sa_handler;
    return handler == SIG_DFL ? "default" : handler == own_handler ? "own" : "library's";
}

// ---- the other end of the terminal ----------------------------------------------

// The child's report after the keys have answered its first prompt.
std::string typed(const std::string &keys, const std::function<std::string()> &body) {
    TerminalProcess child(body);
    child.expect_shown(kPrompt);
    child.type(keys);
    return child.report();
}

std::string typed_hidden(const std::string &keys, uint32_t len = kLength) {
    return typed(keys, [len] { return read_hidden(len); });
}

// Two reads, one after the other, from what was typed at once.
std::string typed_twice(const std::string &keys, uint32_t len = kLength) {
    return typed(keys, [len] {
        const std::string first = read_hidden(len);
        return first + " " + read_hidden(len);
    });
}

void await_input() {
    pollfd fd{0, POLLIN, 0};
    poll(&fd, 1, -1);
}

// The output of the child after the prompt.
std::string shown_after_prompt(const TerminalProcess &child) {
    const std::size_t at = child.shown().find(kPrompt);
    return at != std::string::npos ? child.shown().substr(at + std::strlen(kPrompt)) : "no prompt";
}

std::size_t open_files() {
    std::size_t count = 0;
    DIR *const dir = opendir("/proc/self/fd");
    while (dir != nullptr && readdir(dir) != nullptr) {
        ++count;
    }
    closedir(dir);
    return count;
}

// The "tty" program answers with this text instead.
void tty_prints(const std::string &text) {
    fake::libc::on_popen([text](const char *, const char *) -> void * {
        FILE *const output = tmpfile();
        std::fwrite(text.data(), 1, text.size(), output);
        std::rewind(output);
        return output;
    });
}

// Runs the operation with standard error going to a file; its text.
template <typename F>
std::string standard_error_of(F &&operation) {
    testing::internal::CaptureStderr();
    operation();
    return testing::internal::GetCapturedStderr();
}

template <typename F>
std::string standard_output_of(F &&operation) {
    testing::internal::CaptureStdout();
    operation();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

// ---- arguments -------------------------------------------------------------------

TEST(ReadInput, ANullPromptIsRefusedWithAZeroedBufferAndNoOutput) {
    for (const uint32_t flags : {0u, 1u, 2u, 3u}) {
        const std::string out = standard_output_of(
            [&] { EXPECT_EQ(read_input(flags, 8, 1, nullptr), result("invalid argument", "", 8)); });
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(fake::calls(), Lines{});
}

TEST(ReadInput, ABufferWithoutRoomIsRefused) {
    char buf[2] = {'#', '#'};
    for (const uint32_t flags : {0u, 1u, 2u, 3u}) {
        const std::string out = standard_output_of([&] {
            EXPECT_EQ(aaa_util_read_input(kPrompt, nullptr, 8, 0, flags), AAA_ERR_INVALID_ARG);
            EXPECT_EQ(aaa_util_read_input(kPrompt, buf, 0, 0, flags), AAA_ERR_INVALID_ARG);
        });
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(std::string(buf, 2), "##");
    EXPECT_EQ(fake::calls(), Lines{});
}

// ---- line editor -----------------------------------------------------------------

namespace {

std::string edited(uint32_t len = kLength, uint32_t timeout_s = 0, uint32_t flags = 0) {
    std::string text;
    standard_output_of([&] { text = read_input(flags, len, timeout_s); });
    return text;
}

const Lines kEditorCalls = {"getline_init()",
                            "getline_configure(ptr, 4, 4, 0)",
                            "getline_configure(ptr, 2, 4, 0)",
                            "getline_configure(ptr, 3, 4, 0)",
                            "getline_configure(ptr, 5, 4, 0)",
                            "getline_configure(ptr, 6, 4, 0)",
                            "getline_configure(ptr, 7, 4, 0)",
                            "gl_ret_on_eintr_enable(ptr)",
                            "qm_getline(ptr, \"\", \"\", 1)",
                            "getline_free(ptr)"};

}  // namespace

TEST(ReadInputEditor, ReadsALine) {
    fake::push_line("alice\n");
    EXPECT_EQ(edited(), result("ok", "alice"));
}

TEST(ReadInputEditor, SetsTheEditorUpInItsOrder) {
    fake::push_line("alice\n");
    edited();
    EXPECT_EQ(fake::calls(), kEditorCalls);
    EXPECT_EQ(fake::getline_options(),
              (std::vector<std::pair<uint32_t, uint32_t>>{{4, 0}, {2, 0}, {3, 0}, {5, 0}, {6, 0}, {7, 0}}));
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_TRUE(fake::logs().empty());
}

TEST(ReadInputEditor, ShowsThePromptAndTheLineFeedThatWasAskedFor) {
    fake::push_line("alice\n");
    EXPECT_EQ(standard_output_of([] { read_input(0, 8, 0, "Username: "); }), "Username: ");
    fake::push_line("alice\n");
    EXPECT_EQ(standard_output_of([] { read_input(AAA_READ_LINEFEED, 8, 0, "Username: "); }), "\nUsername: ");
    fake::push_line("alice\n");
    EXPECT_EQ(standard_output_of([] { read_input(AAA_READ_LINEFEED, 8, 0, ""); }), "\n");
}

TEST(ReadInputEditor, ThePromptIsOutBeforeTheEditorStarts) {
    int out[2];
    ASSERT_EQ(pipe2(out, O_NONBLOCK), 0);
    std::fflush(stdout);
    const int saved = dup(1);
    dup2(out[1], 1);
    std::string seen;
    fake::before("getline_init", [&] {
        char text[64];
        const ssize_t n = read(out[0], text, sizeof text);
        seen.assign(text, n > 0 ? static_cast<std::size_t>(n) : 0);
    });
    read_input(0);
    dup2(saved, 1);
    for (const int fd : {saved, out[0], out[1]}) {
        close(fd);
    }
    EXPECT_EQ(seen, kPrompt);
}

TEST(ReadInputEditor, OtherFlagBitsDoNotMatter) {
    fake::push_line("alice\n");
    EXPECT_EQ(edited(kLength, 0, 0xFFFFFFFC), result("ok", "alice"));
}

TEST(ReadInputEditor, CutsTheLineAtItsFirstLineFeed) {
    const std::pair<const char *, const char *> rows[] = {{"alice", "alice"},
                                                          {"alice\n", "alice"},
                                                          {"ali\nce\n", "ali"},
                                                          {"alice\r\n", "alice\r"},
                                                          {"\nalice", ""}};
    for (const auto &[line, text] : rows) {
        fake::push_line(line);
        EXPECT_EQ(edited(), result("ok", text)) << testing::PrintToString(line);
    }
}

TEST(ReadInputEditor, ALineOfALineFeedOnlyIsNoEmptyLine) {
    fake::push_line("\n");
    EXPECT_EQ(edited(), result("ok", ""));
}

TEST(ReadInputEditor, ALineOfExactlyTheLengthHasNoTerminator) {
    fake::push_line("12345678\n");
    EXPECT_EQ(edited(8), "ok [12345678####]");
    fake::push_line("1234567\n");
    EXPECT_EQ(edited(8), "ok [1234567.####]");
    fake::push_line("x\n");
    EXPECT_EQ(edited(1), "ok [x####]");
}

TEST(ReadInputEditor, ALongerLineIsRefusedWhole) {
    fake::push_line("123456789\n");
    EXPECT_EQ(edited(8), result("bad client data", "", 8));
    fake::push_line(std::string(100000, 'a'));
    EXPECT_EQ(edited(8), result("bad client data", "", 8));
    // The length after the cut counts.
    fake::push_line("12345678\nabcdefghijkl");
    EXPECT_EQ(edited(8), "ok [12345678####]");
}

TEST(ReadInputEditor, NoLineAnEmptyLineAndACancelledLineAreBadClientData) {
    EXPECT_EQ(edited(), result("bad client data", ""));
    fake::push_line(std::nullopt);
    EXPECT_EQ(edited(), result("bad client data", ""));
    fake::push_line("");
    EXPECT_EQ(edited(), result("bad client data", ""));
    for (const int ok : {0, 2, -1}) {
        fake::push_line("alice\n", ok);
        EXPECT_EQ(edited(), result("bad client data", "")) << ok;
    }
}

TEST(ReadInputEditor, AnInterruptedReadIsATimeOutWhateverTheEditorGaveBack) {
    fake::push_line(std::nullopt, 1, EINTR);
    EXPECT_EQ(edited(), result("time-out", ""));
    fake::push_line("alice\n", 1, EINTR);
    EXPECT_EQ(edited(), result("time-out", ""));
    fake::push_line("", 0, EINTR);
    EXPECT_EQ(edited(kLength, 9), result("time-out", ""));
}

TEST(ReadInputEditor, OtherErrorsOfTheEditorDoNotMatter) {
    fake::push_line("alice\n", 1, EIO);
    EXPECT_EQ(edited(), result("ok", "alice"));
    fake::push_line(std::nullopt, 1, EIO);
    EXPECT_EQ(edited(), result("bad client data", ""));
}

TEST(ReadInputEditor, AnOldInterruptionIsNoTimeOut) {
    fake::push_line("alice\n");
    std::string text;
    standard_output_of([&] {
        errno = EINTR;
        text = read_input(0);
    });
    EXPECT_EQ(text, result("ok", "alice"));
    // Also when the editor leaves errno alone.
    fake::answer("qm_getline", 0, 1);
    standard_output_of([&] {
        errno = EINTR;
        text = read_input(0);
    });
    EXPECT_EQ(text, result("bad client data", ""));
}

TEST(ReadInputEditor, AnEditorThatDoesNotStartIsAnOperatingSystemError) {
    fake::answer("getline_init", 0, 1);
    EXPECT_EQ(edited(kLength, 9), result("os", ""));
    EXPECT_EQ(fake::calls(), Lines{"getline_init()"});
}

TEST(ReadInputEditor, TheFirstSettingThatIsRefusedIsTheResult) {
    for (unsigned k = 1; k <= 6; ++k) {
        fake::clear_journal();
        fake::fail_call("getline_configure", k, EINVAL);
        EXPECT_EQ(edited(kLength, 9), result("EINVAL", ""));
        Lines expected(kEditorCalls.begin(), kEditorCalls.begin() + 1 + k);
        expected.push_back("getline_free(ptr)");
        EXPECT_EQ(fake::calls(), expected) << k;
    }
    fake::clear_journal();
    fake::fail_call("getline_configure", 1, 0x81234567);
    EXPECT_EQ(edited(), result(std::to_string(0x81234567), ""));
}

TEST(ReadInputEditor, ATimeLimitStartsTheAlarmBeforeTheReadAndStopsItAfterwards) {
    fake::libc::on_alarm([](unsigned) { return 0u; });
    fake::push_line("alice\n");
    EXPECT_EQ(edited(kLength, 9), result("ok", "alice"));
    Lines expected = kEditorCalls;
    expected.insert(expected.begin() + 7, "alarm(9)");
    expected.insert(expected.end() - 1, "alarm(0)");
    EXPECT_EQ(fake::calls(), expected);
}

TEST(ReadInputEditor, WithoutATimeLimitTheAlarmIsLeftAlone) {
    fake::libc::on_alarm([](unsigned) { return 0u; });
    install_own_handler();
    fake::push_line("alice\n");
    edited();
    EXPECT_EQ(fake::calls(), kEditorCalls);
    EXPECT_EQ(handler_name(), "own");
    signal(SIGALRM, SIG_DFL);
}

TEST(ReadInputEditor, TheSignalIsDefaultAgainAfterATimeLimit) {
    fake::libc::on_alarm([](unsigned) { return 0u; });
    for (const int error : {0, EINTR}) {
        install_own_handler();
        fake::push_line("alice\n", 1, error);
        edited(kLength, 9);
        EXPECT_EQ(handler_name(), "default") << error;
    }
}

TEST(ReadInputEditor, TheHandlerOnlyWritesATraceAndKeepsErrno) {
    fake::libc::on_alarm([](unsigned) { return 0u; });
    int error_after = 0;
    std::string flags;
    fake::before("qm_getline", [&] {
        const struct sigaction action = alarm_action();
        flags = handler_name();
        for (const int signal : {SIGINT, SIGALRM, SIGTERM, SIGUSR1}) {
            flags += sigismember(&action.sa_mask, signal) != 0 ? " masks" : "";
        }
        flags +=
            (action.sa_flags & (SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_RESETHAND)) != 0 ? " flags" : "";
        errno = ENOTTY;
        raise(SIGALRM);
        error_after = errno;
    });
    fake::push_line("alice\n");
    EXPECT_EQ(edited(kLength, 9), result("ok", "alice"));
    EXPECT_EQ(flags, "library's");
    EXPECT_EQ(error_after, ENOTTY);
    EXPECT_EQ(fake::traces(), (std::vector<fake::Trace>{{5, "Revd SIGNAL 14 !"}}));
}

// ---- terminal: settings ----------------------------------------------------------

TEST(ReadInputTerminal, ReadsALineWithoutEcho) {
    TerminalProcess child([] { return read_hidden(); });
    child.expect_shown(kPrompt);
    child.type("secret\r");
    EXPECT_EQ(child.report(), result("ok", "secret"));
    EXPECT_EQ(shown_after_prompt(child), "");
}

TEST(ReadInputTerminal, SwitchesTheTerminalOverAndBack) {
    const std::string report = typed("secret\r", [] {
        const termios before = unlike_hidden();
        tcsetattr(0, TCSANOW, &before);
        termios during{};
        fake::libc::on_alarm([&](unsigned seconds) {
            if (seconds != 0) {
                during = settings_of(0);
            }
            return 0u;
        });
        const std::string text = read_hidden(kLength, 60);
        return text + ", during: " + difference(hidden_from(before), during) +
               ", after: " + difference(before, settings_of(0));
    });
    EXPECT_EQ(report, result("ok", "secret") + ", during: same, after: same");
}

TEST(ReadInputTerminal, TheSettingsAreSeenFromTheOtherEndWhileItReads) {
    TerminalProcess child([] { return read_hidden(); });
    child.expect_shown(kPrompt);
    const termios during = child.settings();
    EXPECT_EQ(during.c_lflag & (ECHO | ISIG), 0u);
    EXPECT_EQ(during.c_lflag & (ICANON | ECHOE), tcflag_t{ICANON | ECHOE});
    child.type("secret\r");
    EXPECT_EQ(child.report(), result("ok", "secret"));
    EXPECT_EQ(child.settings().c_lflag & (ECHO | ISIG | ICANON), tcflag_t{ECHO | ISIG | ICANON});
}

TEST(ReadInputTerminal, TheSettingsAreRestoredHoweverTheReadEnds) {
    const struct {
        const char *keys;
        uint32_t timeout_s;
        const char *code, *text;
    } rows[] = {
        {"secret\r", 0, "ok", "secret"},
        {"ab\x03"
         "cd\r",
         0, "ok", ""},
        {"\x04", 0, "ok", ""},
        {"0123456789abcdef\r", 0, "ok", "0123456789a"},
        {"", 1, "time-out", ""},
    };
    for (const auto &row : rows) {
        const std::string report = typed(row.keys, [&row] {
            use_ticking_alarm();
            const termios before = settings_of(0);
            const std::size_t files = open_files();
            const std::string text = read_hidden(kLength, row.timeout_s);
            return text + ", " + difference(before, settings_of(0)) +
                   (open_files() == files ? "" : ", a file is left open");
        });
        EXPECT_EQ(report, result(row.code, row.text) + ", same") << testing::PrintToString(row.keys);
    }
}

TEST(ReadInputTerminal, TheLineFeedThatWasAskedForComesBeforeThePrompt) {
    TerminalProcess child([] { return read_input(AAA_READ_HIDDEN | AAA_READ_LINEFEED); });
    child.expect_shown(kPrompt);
    EXPECT_EQ(child.shown(), std::string("\r\n") + kPrompt);
    child.type("x\r");
    EXPECT_EQ(child.report(), result("ok", "x"));
}

TEST(ReadInputTerminal, AsksTheTtyProgramAndClosesThroughThePlatform) {
    const std::string report = typed("secret\r", [] {
        fake::libc::on_popen([](const char *, const char *) -> void * {
            FILE *const output = tmpfile();
            std::fprintf(output, "%s\nsecond line\n", ttyname(0));
            std::rewind(output);
            return output;
        });
        read_hidden();
        return joined(fake::calls({"popen", "qm_close", "getline_init"}));
    });
    EXPECT_TRUE(report.starts_with("popen(\"tty\", \"r\")\nqm_close(")) << report;
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 2);
}

// ---- terminal: keys --------------------------------------------------------------

TEST(ReadInputTerminal, ALineEndsWithLineFeedOrCarriageReturn) {
    EXPECT_EQ(typed_hidden("secret\r"), result("ok", "secret"));
    EXPECT_EQ(typed_hidden("secret\n"), result("ok", "secret"));
    EXPECT_EQ(typed_hidden("\r"), result("ok", ""));
    // A carriage return that the terminal does not turn into a line feed.
    EXPECT_EQ(typed_twice("ab\x16\rcd\r"), result("ok", "ab") + " " + result("ok", "cd"));
}

TEST(ReadInputTerminal, TakesEveryOtherByteAsItIs) {
    EXPECT_EQ(typed_hidden("\xc3\xa9\xff\x80 \x01\x1b\r"), result("ok", "\xc3\xa9\xff\x80 \x01\x1b"));
}

TEST(ReadInputTerminal, ControlCEmptiesTheBufferDropsTheLineAndSucceeds) {
    EXPECT_EQ(typed_hidden("\x03\r"), result("ok", ""));
    EXPECT_EQ(typed_hidden("ab\x03\r"), result("ok", ""));
    EXPECT_EQ(typed_twice("ab\x03"
                          "cd\rnext\r"),
              result("ok", "") + " " + result("ok", "next"));
}

TEST(ReadInputTerminal, ControlVDoesTheSame) {
    // Twice: the terminal takes the first one as "the next key as it is".
    EXPECT_EQ(typed_twice("ab\x16\x16"
                          "cd\rnext\r"),
              result("ok", "") + " " + result("ok", "next"));
}

TEST(ReadInputTerminal, ACancelledLineEndsWithTheInput) {
    EXPECT_EQ(typed_hidden("ab\x03"
                           "cd\x04\x04"),
              result("ok", ""));
}

TEST(ReadInputTerminal, BackspaceErasesACharacter) {
    TerminalProcess child([] { return read_hidden(); });
    child.expect_shown(kPrompt);
    child.type("abc\b\bd\r");
    EXPECT_EQ(child.report(), result("ok", "ad"));
    // The line feeds are kept: scripts that answer this prompt expect them.
    EXPECT_EQ(shown_after_prompt(child), "\b \b\r\n\b \b\r\n");
}

TEST(ReadInputTerminal, DeleteErasesACharacterWhereTheTerminalLetsItThrough) {
    TerminalProcess child([] {
        termios t = settings_of(0);
        t.c_cc[VERASE] = _POSIX_VDISABLE;
        tcsetattr(0, TCSANOW, &t);
        return read_hidden();
    });
    child.expect_shown(kPrompt);
    child.type(
        "abc\x7f"
        "d\r");
    EXPECT_EQ(child.report(), result("ok", "abd"));
    EXPECT_EQ(shown_after_prompt(child), "\b \b\r\n");
}

TEST(ReadInputTerminal, EraseOnAnEmptyBufferDoesNothing) {
    TerminalProcess child([] { return read_hidden(); });
    child.expect_shown(kPrompt);
    child.type("\b\ba\b\bb\r");
    EXPECT_EQ(child.report(), result("ok", "b"));
    EXPECT_EQ(shown_after_prompt(child), "\b \b\r\n");
}

TEST(ReadInputTerminal, AnErasedCharacterDoesNotStayInTheBuffer) {
    EXPECT_EQ(typed_hidden("secret\b\b\b\r"), result("ok", "sec"));
    EXPECT_EQ(typed_hidden("secret\b\b\b\b\b\b\r"), result("ok", ""));
}

TEST(ReadInputTerminal, TenCharactersIntoEightKeepSevenAndLeaveTheRest) {
    EXPECT_EQ(typed_hidden("abcdefghij\r", 8), result("ok", "abcdefg", 8));
    EXPECT_EQ(typed_twice("abcdefghij\r", 8), result("ok", "abcdefg", 8) + " " + result("ok", "ij", 8));
}

TEST(ReadInputTerminal, SevenCharactersIntoEightFit) {
    EXPECT_EQ(typed_twice("abcdefg\rnext\r", 8), result("ok", "abcdefg", 8) + " " + result("ok", "next", 8));
    EXPECT_EQ(typed_hidden("abcdefgh\b\r", 8), result("ok", "abcdefg", 8));
}

TEST(ReadInputTerminal, ABufferOfOneByteHoldsNothing) {
    EXPECT_EQ(typed_hidden("a\r", 1), result("ok", "", 1));
}

TEST(ReadInputTerminal, TheEndOfTheInputEndsTheLine) {
    EXPECT_EQ(typed_hidden("\x04"), result("ok", ""));
    EXPECT_EQ(typed_hidden("abc\x04\x04"), result("ok", "abc"));
}

TEST(ReadInputTerminal, TheEndOfTheInputIsNotRememberedForTheNextRead) {
    EXPECT_EQ(typed_twice("\x04next\r"), result("ok", "") + " " + result("ok", "next"));
}

TEST(ReadInputTerminal, AnOldInterruptionIsNoTimeOut) {
    EXPECT_EQ(typed("\r",
                    [] {
                        errno = EINTR;
                        return read_hidden();
                    }),
              result("ok", ""));
}

// ---- terminal: time limit --------------------------------------------------------

TEST(ReadInputTerminal, TheTimeLimitEndsAnUnansweredPrompt) {
    const std::string report = typed("", [] {
        use_ticking_alarm();
        const std::string text = read_hidden(kLength, 3);
        const auto traces = fake::traces_of(5);
        return text + ", " + joined(fake::calls("alarm")) + (traces.empty() ? "no trace" : traces.front()) +
               ", " + handler_name();
    });
    EXPECT_EQ(report, result("time-out", "") + ", alarm(3)\nalarm(0)\nRevd SIGNAL 14 !, default");
}

TEST(ReadInputTerminal, AnUnfinishedLineIsNotTakenByTheTimeLimit) {
    // The terminal still holds it.
    EXPECT_EQ(typed("secr",
                    [] {
                        use_ticking_alarm();
                        return read_hidden(kLength, 3);
                    }),
              result("time-out", ""));
}

TEST(ReadInputTerminal, WhatWasStoredBeforeTheTimeLimitIsTheInput) {
    TerminalProcess child([] {
        use_ticking_alarm();
        await_input();
        return read_hidden(kLength, 3);
    });
    child.type("abc\x04");  // handed to the reader without a line feed
    EXPECT_EQ(child.report(), result("ok", "abc"));
}

TEST(ReadInputTerminal, ATimeLimitWhileACancelledLineIsDroppedIsATimeOut) {
    TerminalProcess child([] {
        termios t = settings_of(0);
        t.c_lflag &= ~static_cast<tcflag_t>(ISIG);
        tcsetattr(0, TCSANOW, &t);
        use_ticking_alarm();
        std::puts("ready");
        std::fflush(stdout);
        await_input();
        return read_hidden(kLength, 3);
    });
    child.expect_shown("ready");
    child.type("ab\x03\x04");
    EXPECT_EQ(child.report(), result("time-out", ""));
}

TEST(ReadInputTerminal, AReadAfterATimeOutWorks) {
    TerminalProcess child([] {
        use_ticking_alarm();
        const std::string first = read_hidden(kLength, 3);
        std::puts("again");
        return first + " " + read_hidden();
    });
    child.expect_shown("again");
    child.type("next\r");
    EXPECT_EQ(child.report(), result("time-out", "") + " " + result("ok", "next"));
}

TEST(ReadInputTerminal, AnAnswerInTimeStopsTheAlarm) {
    EXPECT_EQ(typed("secret\r",
                    [] {
                        const std::string text = read_hidden(kLength, 3600);
                        return text + ", " + std::to_string(alarm(0)) + ", " + handler_name();
                    }),
              result("ok", "secret") + ", 0, default");
}

TEST(ReadInputTerminal, TheSignalIsResetAlsoWithoutATimeLimit) {
    EXPECT_EQ(typed("secret\r",
                    [] {
                        fake::libc::on_alarm([](unsigned) { return 0u; });
                        install_own_handler();
                        const std::string text = read_hidden();
                        return text + ", " + joined(fake::calls("alarm")) + handler_name();
                    }),
              result("ok", "secret") + ", alarm(0)\ndefault");
}

// ---- terminal: none, or one that fails --------------------------------------------

TEST(ReadInputTerminal, WithoutATerminalTheInputIsEmptyAndTheReadSucceeds) {
    TerminalProcess child(
        [] {
            std::string text;
            const std::string errors = standard_error_of([&] { text = read_hidden(); });
            return text + ", " + errors;
        },
        false);
    EXPECT_EQ(child.report(), result("ok", "") + ", stats fails \n");
}

TEST(ReadInputTerminal, EachWayOfFindingNoTerminalSaysWhy) {
    const auto read_with_answer = [](const std::optional<std::string> &answer) {
        if (answer) {
            tty_prints(*answer);
        } else {
            fake::libc::on_popen([](const char *, const char *) -> void * { return nullptr; });
        }
        std::string out;
        const std::string errors = standard_error_of(
            [&] { out = standard_output_of([] { EXPECT_EQ(read_hidden(), result("ok", "")); }); });
        EXPECT_EQ(out, "") << "no prompt without a terminal";
        return errors;
    };
    EXPECT_EQ(read_with_answer(std::nullopt), "popen fails \n");
    EXPECT_EQ(read_with_answer(""), "popen fails \n");
    EXPECT_EQ(read_with_answer("not a tty\n"), "stats fails \n");
    EXPECT_EQ(read_with_answer("\n"), "stats fails \n");
    // It has no last character to drop.
    EXPECT_EQ(read_with_answer(std::string(1, '\0') + "\n"), "stats fails \n");
    EXPECT_EQ(read_with_answer(std::string(1000, 'x') + "\n"), "stats fails \n");
    EXPECT_EQ(read_with_answer("/\n"), "Not a Character special file \n");
    EXPECT_EQ(read_with_answer("/proc/self/exe\n"), "Not a Character special file \n");
    EXPECT_EQ(fake::calls({"qm_close", "alarm"}), Lines{});
}

TEST(ReadInputTerminal, TheLastCharacterOfTheNameIsDroppedWhateverItIs) {
    tty_prints("/dev/nullx");
    EXPECT_EQ(standard_error_of([] { EXPECT_EQ(read_hidden(), result("ENOTTY", "")); }), "");
}

TEST(ReadInputTerminal, ADeviceThatIsNotATerminalIsClosedAndReported) {
    tty_prints("/dev/null\n");
    const std::size_t files = open_files();
    EXPECT_EQ(standard_output_of([] { EXPECT_EQ(read_hidden(), result("ENOTTY", "")); }), "");
    EXPECT_EQ(fake::count("qm_close"), 1u);
    EXPECT_EQ(open_files(), files);
    EXPECT_EQ(fake::calls("alarm"), Lines{});
}

TEST(ReadInputTerminal, ADeviceThatCannotBeOpenedIsReported) {
    TerminalProcess child(
        [] {
            tty_prints("/dev/tty\n");  // there is none for a process without a controlling terminal
            return read_hidden() + ", " + joined(fake::calls("qm_close"));
        },
        false);
    EXPECT_EQ(child.report(), result("ENXIO", "") + ", ");
}

namespace {

// Fails the k-th call of one kind on a terminal, and notes the file descriptors.
struct TerminalCalls {
    std::string text;
    unsigned gets = 0, sets = 0;

    void fail_get(int error) {
        fake::libc::on_tcgetattr([this, error](int) -> std::optional<int> {
            ++gets;
            return error;
        });
    }
    void fail_set(unsigned k, std::optional<int> error) {
        fake::libc::on_tcsetattr([this, k, error](int fd, int action) -> std::optional<int> {
            text += fd == 0 ? " input" : " terminal";
            text += action == TCSANOW ? "" : " not at once";
            return ++sets == k ? error : std::nullopt;
        });
    }
};

std::string with_failing_set(unsigned k, std::optional<int> error) {
    TerminalCalls calls;
    const termios before = settings_of(0);
    const std::size_t files = open_files();
    calls.fail_set(k, error);
    const std::string text = read_hidden();
    return text + calls.text + ", " + difference(before, settings_of(0)) +
           (open_files() == files ? "" : ", a file is left open");
}

}  // namespace

TEST(ReadInputTerminal, SettingsAreMadeOnTheTerminalAndRestoredThroughStandardInput) {
    EXPECT_EQ(typed("secret\r", [] { return with_failing_set(0, std::nullopt); }),
              result("ok", "secret") + " terminal input, same");
}

TEST(ReadInputTerminal, ATerminalThatCannotBeSwitchedOverIsReported) {
    TerminalProcess child([] { return with_failing_set(1, EIO); });
    EXPECT_EQ(child.report(), result("EIO", "") + " terminal, same");
    EXPECT_EQ(child.shown(), "");
}

TEST(ReadInputTerminal, ATerminalThatRefusesWithoutAReasonIsReadAndNotRestored) {
    EXPECT_EQ(typed("secret\r", [] { return with_failing_set(1, 0); }),
              result("ok", "secret") + " terminal, same");
}

TEST(ReadInputTerminal, AFailureToRestoreIsTheResultThoughTheInputIsThere) {
    EXPECT_EQ(typed("secret\r", [] { return with_failing_set(2, EIO); }),
              result("EIO", "secret") + " terminal input, input flags differ");
}

TEST(ReadInputTerminal, SettingsThatCannotBeReadAreReported) {
    TerminalProcess child([] {
        TerminalCalls calls;
        calls.fail_get(EIO);
        calls.fail_set(0, std::nullopt);
        const std::size_t files = open_files();
        const std::string text = read_hidden(kLength, 9);
        return text + calls.text + (open_files() == files ? "" : ", a file is left open");
    });
    EXPECT_EQ(child.report(), result("EIO", ""));
    EXPECT_EQ(child.shown(), "");
}

TEST(ReadInputTerminal, ATerminalThatCannotBeUsedIsClosedAlsoAsDescriptorZero) {
    // Settings that cannot be read, settings that are refused.
    for (const bool get : {true, false}) {
        TerminalProcess child([get] {
            tty_prints(std::string(ttyname(0)) + "\n");
            const int input = dup(0);
            close(0);
            TerminalCalls calls;
            get ? calls.fail_get(EIO) : calls.fail_set(1, EIO);
            const std::string text = read_hidden();
            const std::string closes = joined(fake::calls("qm_close"));
            const bool closed = fcntl(0, F_GETFD) < 0;
            dup2(input, 0);
            return text + ", " + closes + (closed ? "closed" : "open");
        });
        EXPECT_EQ(child.report(), result("EIO", "") + ", qm_close(0)\nclosed");
    }
}

TEST(ReadInputTerminal, AnOldErrorIsNotTakenForTheTerminals) {
    EXPECT_EQ(typed("secret\r",
                    [] {
                        TerminalCalls calls;
                        calls.fail_set(1, 0);
                        errno = EPERM;
                        return read_hidden();
                    }),
              result("ok", "secret"));
    // Setting is refused as well: settings that were not read must not be restored.
    EXPECT_EQ(typed("secret\r",
                    [] {
                        TerminalCalls calls;
                        calls.fail_get(0);
                        calls.fail_set(1, 0);
                        errno = EPERM;
                        return read_hidden();
                    }),
              result("ok", "secret"));
}

TEST(ReadInputTerminal, StandardInputThatIsNotATerminalLeavesTheTerminalSwitchedOver) {
    // The characters come from standard input, and the settings are restored there:
    // a pipe refuses them. The contents of the pipe are not dropped.
    TerminalProcess child([] {
        const std::string name = ttyname(0);
        tty_prints(name + "\n");
        int fds[2];
        if (pipe(fds) != 0 || write(fds[1], "secret\n", 7) != 7) {
            return std::string("no pipe");
        }
        dup2(fds[0], 0);
        const std::string text = read_hidden();
        return text + ((settings_of(1).c_lflag & ECHO) != 0 ? ", echo" : ", no echo");
    });
    EXPECT_EQ(child.report(), result("ENOTTY", "secret") + ", no echo");
}
