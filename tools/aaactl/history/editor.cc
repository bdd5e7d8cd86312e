// SPDX-License-Identifier: Apache-2.0

#include "history/editor.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "cli/output.hpp"
#include "cli/temporary_file.hpp"
#include "database/dump.hpp"

namespace aaactl {
namespace {

// As other programs that start an editor: the variables hold a command, with options.
constexpr char kScript[] =
    "if [ -n \"$VISUAL\" ]; then eval \"exec $VISUAL \\\"\\$1\\\"\"; "
    "elif [ -n \"$EDITOR\" ]; then eval \"exec $EDITOR \\\"\\$1\\\"\"; "
    "elif command -v editor >/dev/null; then exec editor \"$1\"; "
    "else exec vi \"$1\"; fi";

Failure failed(const std::string &what) {
    return {ExitCode::failed, what + ": " + std::strerror(errno)};
}

std::string ending_of(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("was ended by a signal: ") + strsignal(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 127 ? "could not be started (exit status 127); set EDITOR to a command"
                                      : "failed with exit status " + std::to_string(WEXITSTATUS(status));
}

// The keys that interrupt are for the editor.
class IgnoredSignals {
  public:
    IgnoredSignals() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGINT, &ignore, &interrupt_);
        sigaction(SIGQUIT, &ignore, &quit_);
    }
    ~IgnoredSignals() { restore(); }
    IgnoredSignals(const IgnoredSignals &) = delete;
    IgnoredSignals &operator=(const IgnoredSignals &) = delete;

    void restore() const {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGQUIT, &quit_, nullptr);
    }

  private:
    struct sigaction interrupt_ {};
    struct sigaction quit_ {};
};

}  // namespace

EditedFile::EditedFile(const std::string &text) {
    const char *place = secure_getenv("TMPDIR");
    directory_ = std::string(place != nullptr && *place == '/' ? place : "/tmp") + "/aaactl-XXXXXX";
    if (mkdtemp(directory_.data()) == nullptr) {
        throw failed(escaped(directory_) + ": no directory can be made for the text");
    }
    path_ = directory_ + "/running-config";
    try {
        write(text);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
        throw;
    }
}

// With what the editor has left next to it.
EditedFile::~EditedFile() {
    if (!kept_) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
}

void EditedFile::write(const std::string &text) const {
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    const bool written = fd >= 0 && write_all(fd, text);
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!written) {
        errno = error;
        throw failed(escaped(path_));
    }
}

void EditedFile::edit() const {
    const IgnoredSignals ignored;
    const pid_t pid = fork();
    if (pid < 0) {
        throw failed("the editor cannot be started");
    }
    if (pid == 0) {
        ignored.restore();
        execl("/bin/sh", "sh", "-c", kScript, "sh", path_.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw Failure(ExitCode::failed, "the editor " + ending_of(status));
    }
}

std::string EditedFile::text() const {
    return read_whole_file(path_);
}

}  // namespace aaactl
