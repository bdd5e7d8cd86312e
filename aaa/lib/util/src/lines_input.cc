// SPDX-License-Identifier: Apache-2.0
//
// Prompted input with a time limit. Hidden input switches the controlling
// terminal over and reads characters; everything else goes through the
// platform's line editor. On both paths an alarm ends the read: the handler is
// installed without SA_RESTART, so that the read returns with EINTR, and errno
// alone tells a time-out from an end of input.

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aaa/lines.h"
#include "aaa/result_codes.h"
#include "internal/input_buffer.hpp"
#include "internal/memory.hpp"
#include "internal/terminal_name.hpp"
#include "internal/trace.hpp"
#include "platform/logging.h"
#include "platform/node.h"
#include "platform/terminal.h"

namespace {

extern "C" void on_alarm(int signal_number) {
    const int saved = errno;
    aaa_debug(AAA_DBG_LINES_SESSION, "Revd SIGNAL %d !", signal_number);
    errno = saved;
}

void start_alarm(uint32_t seconds) {
    struct sigaction action = {};
    action.sa_handler = on_alarm;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    alarm(seconds);
}

void stop_alarm() {
    alarm(0);
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
}

void show(const char *text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

cerrno errno_code() {
    return static_cast<cerrno>(errno);
}

// ---- the controlling terminal ------------------------------------------------

// False, with the reason on standard error, when there is no terminal: a
// process without one gets an empty input and success.
bool find_terminal(char (&name)[aaautil::kTerminalNameSize]) {
    struct stat status = {};
    if (!aaautil::read_terminal_name(name)) {
        std::fputs("popen fails \n", stderr);
        return false;
    }
    if (stat(name, &status) != 0) {
        std::fputs("stats fails \n", stderr);
        return false;
    }
    if (!S_ISCHR(status.st_mode)) {
        std::fputs("Not a Character special file \n", stderr);
        return false;
    }
    return true;
}

// The terminal with echo off, for the length of a scope's work.
class HiddenTerminal {
  public:
    HiddenTerminal() = default;
    HiddenTerminal(const HiddenTerminal &) = delete;
    HiddenTerminal &operator=(const HiddenTerminal &) = delete;

    // Opens the terminal and switches it over; a code when that cannot be done.
    cerrno open_and_switch(const char *name) {
        fd_ = open(name, O_RDWR);
        if (fd_ < 0) {
            return errno_code();
        }
        errno = 0;
        if (tcgetattr(fd_, &saved_) != 0 && errno != 0) {
            return close_with(errno_code());
        }
        struct termios hidden = saved_;
        hidden.c_oflag |= static_cast<tcflag_t>(OPOST | ONLCR);
        hidden.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF);
        hidden.c_iflag |= static_cast<tcflag_t>(ICRNL);
        hidden.c_lflag &= ~static_cast<tcflag_t>(ISIG | ECHO);
        hidden.c_lflag |= static_cast<tcflag_t>(ICANON | ECHOE);
        errno = 0;
        if (tcsetattr(fd_, TCSANOW, &hidden) != 0) {
            if (errno != 0) {
                return close_with(errno_code());
            }
            switched_ = false;  // a terminal that refuses without a reason is left as it is
        }
        return AAA_OK;
    }

    // Puts the settings back, through standard input, and closes the terminal.
    // The result of the read, or of putting back when that fails.
    cerrno restore(cerrno result) {
        if (switched_ && tcsetattr(STDIN_FILENO, TCSANOW, &saved_) != 0) {
            result = errno_code();
        }
        // Descriptor 0 stays open: it is standard input.
        return fd_ >= 1 ? close_with(result) : result;
    }

  private:
    cerrno close_with(cerrno result) {
        qm_close(fd_);
        fd_ = -1;
        return result;
    }

    int fd_ = -1;
    bool switched_ = true;
    struct termios saved_ = {};
};

// ---- characters ----------------------------------------------------------------

constexpr int kCtrlC = 3;
constexpr int kBackspace = 8;
constexpr int kCtrlV = 22;
constexpr int kDelete = 127;

cerrno interrupted_or_ok() {
    return errno == EINTR ? AAA_ERR_TIMEOUT : AAA_OK;
}

// Drops the rest of a cancelled line, and what was stored of it.
cerrno cancel(char *buf, uint32_t stored) {
    for (int c = getchar(); c != '\n' && c != EOF; c = getchar()) {
    }
    aaautil::wipe(buf, stored);
    return interrupted_or_ok();
}

// Reads one line into buf, which is all zero. errno was set to 0 before.
cerrno read_characters(char *buf, uint32_t len) {
    uint32_t stored = 0;
    for (;;) {
        const int c = getchar();
        if (c == kCtrlC || c == kCtrlV) {
            return cancel(buf, stored);
        }
        if (errno == EINTR || c == EOF || c == '\n' || c == '\r') {
            break;
        }
        if (c == kBackspace || c == kDelete) {
            if (stored > 0) {
                std::puts("\b \b");  // with the line feed that puts adds: kept, scripts expect it
                buf[--stored] = '\0';
            }
            continue;
        }
        if (stored == len - 1) {
            break;  // the character that does not fit ends the input and is dropped; the rest of the line is
                    // left
        }
        buf[stored++] = static_cast<char>(c);
    }
    return stored > 0 ? AAA_OK : interrupted_or_ok();
}

cerrno read_from_terminal(const char *prompt, char *buf, uint32_t len, uint32_t timeout_s) {
    char name[aaautil::kTerminalNameSize] = "";
    if (!find_terminal(name)) {
        return AAA_OK;
    }
    HiddenTerminal terminal;
    const cerrno opened = terminal.open_and_switch(name);
    if (opened != AAA_OK) {
        return opened;
    }
    if (timeout_s != 0) {
        start_alarm(timeout_s);
    }
    show(prompt);
    std::fflush(stdin);
    errno = 0;
    const cerrno result = read_characters(buf, len);
    stop_alarm();
    std::clearerr(stdin);  // an interrupted read must not look like an error to the next one
    return terminal.restore(result);
}

// ---- the line editor -------------------------------------------------------------

class LineEditor {
  public:
    LineEditor() : handle_(getline_init()) {}
    LineEditor(const LineEditor &) = delete;
    LineEditor &operator=(const LineEditor &) = delete;
    ~LineEditor() {
        if (handle_ != nullptr) {
            getline_free(handle_);
        }
    }
    [[nodiscard]] void *get() const { return handle_; }

    [[nodiscard]] cerrno configure() const {
        constexpr uint32_t kOptions[] = {4, 2, 3, 5, 6, 7};
        const uint32_t zero = 0;
        for (const uint32_t option : kOptions) {
            const cerrno rc = getline_configure(handle_, option, sizeof zero, &zero);
            if (rc != AAA_OK) {
                return rc;
            }
        }
        return AAA_OK;
    }

  private:
    void *handle_;
};

cerrno copy_line(char *line, char *buf, uint32_t len) {
    line[std::strcspn(line, "\n")] = '\0';
    const size_t length = std::strlen(line);
    if (length > len) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    // The rest of buf is zero already. A line of exactly len characters has no
    // NUL: kept, callers that hand in one byte less than they have rely on it.
    std::memcpy(buf, line, length);
    return AAA_OK;
}

cerrno read_from_editor(const char *prompt, char *buf, uint32_t len, uint32_t timeout_s) {
    show(prompt);
    const LineEditor editor;
    if (editor.get() == nullptr) {
        return AAA_ERR_OS;
    }
    const cerrno configured = editor.configure();
    if (configured != AAA_OK) {
        return configured;
    }
    if (timeout_s != 0) {
        start_alarm(timeout_s);
    }
    gl_ret_on_eintr_enable(editor.get());
    alignas(uint64_t) int ok[2] = {1, 0};
    errno = 0;
    char *line = qm_getline(editor.get(), "", "", ok);
    const bool interrupted = errno == EINTR;
    if (timeout_s != 0) {
        stop_alarm();
    }
    if (interrupted) {
        return AAA_ERR_TIMEOUT;
    }
    if (line == nullptr || *line == '\0' || ok[0] != 1) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    return copy_line(line, buf, len);
}

}  // namespace

extern "C" {

cerrno aaa_util_read_input(const char *prompt, char *buf, uint32_t len, uint32_t timeout_s, uint32_t flags) {
    if (buf == nullptr || len == 0) {
        return AAA_ERR_INVALID_ARG;
    }
    std::memset(buf, 0, len);
    if (prompt == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if ((flags & AAA_READ_LINEFEED) != 0) {
        std::putchar('\n');
    }
    const cerrno rc = (flags & AAA_READ_HIDDEN) != 0 ? read_from_terminal(prompt, buf, len, timeout_s)
                                                     : read_from_editor(prompt, buf, len, timeout_s);
    aaautil::wipe_consumed_input();
    return rc;
}

}  // extern "C"
