// SPDX-License-Identifier: Apache-2.0
//
// Reads with the echo of the terminal off, and restores it before a signal ends
// the program.

#include "cli/secret_input.hpp"

#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile sig_atomic_t g_signal = 0;

void note_signal(int number) {
    g_signal = number;
}

// A terminal without echo, until the object is destroyed. Signals that would end the program are delivered
// only while it waits for input, and raised again at the end: the echo is always restored, and no signal is
// lost.
class Silence {
  public:
    explicit Silence(int fd) : fd_(fd) {
        g_signal = 0;
        sigset_t blocked;
        sigemptyset(&blocked);
        struct sigaction action {};
        action.sa_handler = note_signal;
        for (size_t i = 0; i < std::size(kSignals); ++i) {
            sigaddset(&blocked, kSignals[i]);
            sigaction(kSignals[i], &action, &actions_[i]);
        }
        sigprocmask(SIG_BLOCK, &blocked, &mask_);
        silenced_ = tcgetattr(fd, &saved_) == 0;
        if (silenced_) {
            termios silent = saved_;
            silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            silent.c_lflag |= ECHONL;
            silenced_ = tcsetattr(fd, TCSAFLUSH, &silent) == 0;
        }
    }
    ~Silence() {
        if (silenced_) {
            tcsetattr(fd_, TCSAFLUSH, &saved_);
        }
        for (size_t i = 0; i < std::size(kSignals); ++i) {
            sigaction(kSignals[i], &actions_[i], nullptr);
        }
        sigprocmask(SIG_SETMASK, &mask_, nullptr);
        if (g_signal != 0) {
            raise(g_signal);
        }
    }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

    bool silenced() const { return silenced_; }
    // Waits for input; false when a signal came first.
    bool wait() const {
        pollfd ready{fd_, POLLIN, 0};
        return ppoll(&ready, 1, nullptr, &mask_) == 1;
    }

  private:
    int fd_;
    bool silenced_ = false;
    sigset_t mask_{};
    termios saved_{};
    struct sigaction actions_[std::size(kSignals)]{};
};

// Reads to the end of the input or of the line. The memory is reserved at once, because growing would leave
// copies of a secret. A signal while a line is typed discards the line.
std::string read_up_to(size_t limit, bool one_line, bool *ended = nullptr, const Silence *typed = nullptr) {
    std::string text;
    text.reserve(limit + 2);
    char c = 0;
    while (text.size() <= limit + 1) {
        const bool interrupted = typed != nullptr && !typed->wait();
        const ssize_t n = interrupted ? 0 : read(STDIN_FILENO, &c, 1);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (interrupted) {
            wipe(text);
        }
        if (n <= 0 && ended != nullptr) {
            *ended = true;
        }
        if (n <= 0 || (one_line && c == '\n')) {
            break;
        }
        text += c;
    }
    return text;
}

void show_prompt(const std::string &prompt) {
    std::fprintf(stderr, "%s", prompt.c_str());
    std::fflush(stderr);
}

std::string read_typed(const std::string &prompt, size_t limit, bool *ended = nullptr) {
    const Silence silence(STDIN_FILENO);
    if (!silence.silenced()) {
        throw Failure(ExitCode::failed,
                      std::string("the echo of the terminal cannot be turned off: ") + std::strerror(errno));
    }
    show_prompt(prompt);
    return read_up_to(limit, true, ended, &silence);
}

std::string read_line(const std::string &prompt, bool echo, size_t limit, bool *ended) {
    if (isatty(STDIN_FILENO) != 1) {
        return read_up_to(limit, true, ended);
    }
    if (!echo) {
        return read_typed(prompt, limit, ended);
    }
    show_prompt(prompt);
    return read_up_to(limit, true, ended);
}

}  // namespace

std::string read_secret(const std::string &prompt, size_t limit) {
    std::string text = isatty(STDIN_FILENO) == 1 ? read_typed(prompt, limit) : read_up_to(limit, false);
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    if (text.size() > limit) {
        wipe(text);
        throw Failure(ExitCode::bad_input, "standard input: more than " + std::to_string(limit) + " bytes");
    }
    if (text.empty()) {
        throw Failure(ExitCode::usage, "standard input is empty");
    }
    return text;
}

std::optional<std::string> read_answer(const std::string &prompt, bool echo, size_t limit) {
    bool ended = false;
    std::string text = read_line(prompt, echo, limit, &ended);
    if (text.size() > limit || text.find('\0') != std::string::npos) {
        wipe(text);
        throw Failure(ExitCode::bad_input, "standard input: a line of more than " + std::to_string(limit) +
                                               " bytes, or with a NUL byte");
    }
    return ended && text.empty() ? std::nullopt : std::optional(std::move(text));
}

void wipe(std::string &text) {
    explicit_bzero(text.data(), text.size());
    text.clear();
}

}  // namespace aaactl
