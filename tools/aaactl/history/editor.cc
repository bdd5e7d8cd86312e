// SPDX-License-Identifier: Apache-2.0

#include "history/editor.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

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

constexpr char kDirectory[] = "aaactl-";
constexpr char kFile[] = "/running-config";

std::string place() {
    const char *place = secure_getenv("TMPDIR");
    return place != nullptr && *place == '/' ? place : "/tmp";
}

// The lock of a directory, held until the descriptor is closed; -1 if another process has it, and for a
// directory that is not this user's.
int lock_directory(const std::string &directory) {
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status {};
    if (fd >= 0 &&
        (fstat(fd, &status) != 0 || status.st_uid != geteuid() || flock(fd, LOCK_EX | LOCK_NB) != 0)) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string ending_of(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("was ended by a signal: ") + strsignal(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 127 ? "could not be started (exit status 127); set EDITOR to a command"
                                      : "failed with exit status " + std::to_string(WEXITSTATUS(status));
}

// ---- signals while the editor runs

volatile pid_t g_editor = 0;
volatile std::sig_atomic_t g_came = 0;

void pass_on(int signal) {
    g_came = signal;
    if (g_editor > 0) {
        kill(g_editor, signal);
    }
}

// The keys that interrupt are for the editor. What ends this program ends the editor first, which saves what
// it can.
class EditorSignals {
  public:
    EditorSignals() {
        g_came = 0;
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        struct sigaction pass {};
        pass.sa_handler = pass_on;
        pass.sa_flags = SA_RESTART;
        for (size_t i = 0; i < std::size(kAll); ++i) {
            sigaction(kAll[i], nullptr, &before_[i]);
            const bool is_key = kAll[i] == SIGINT || kAll[i] == SIGQUIT;
            if (before_[i].sa_handler != SIG_IGN) {  // nohup has it ignored
                sigaction(kAll[i], is_key ? &ignore : &pass, nullptr);
            }
        }
    }
    ~EditorSignals() { restore(); }
    EditorSignals(const EditorSignals &) = delete;
    EditorSignals &operator=(const EditorSignals &) = delete;

    void restore() const {
        for (size_t i = 0; i < std::size(kAll); ++i) {
            sigaction(kAll[i], &before_[i], nullptr);
        }
    }

  private:
    static constexpr int kAll[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
    struct sigaction before_[std::size(kAll)]{};
};

// The status with which the editor ended. Until it is known, its number is not that of another process.
int wait_for(pid_t editor) {
    g_editor = editor;
    if (g_came != 0) {  // before the number was known
        kill(editor, g_came);
    }
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(editor), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    g_editor = 0;
    int status = 0;
    while (waitpid(editor, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// ---- signals at other times

constexpr int kEnding[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
struct sigaction g_before[std::size(kEnding)];
std::string g_last_words;  // not changed while the handler is set

void say_last_words(int signal) {
    const ssize_t ignored = write(STDERR_FILENO, g_last_words.data(), g_last_words.size());
    static_cast<void>(ignored);
    raise(signal);  // its default action, because the handler is reset
}

}  // namespace

EditedFile::EditedFile(const std::string &text) {
    directory_ = place() + "/" + kDirectory + "XXXXXX";
    if (mkdtemp(directory_.data()) == nullptr) {
        throw failed(escaped(directory_) + ": no directory can be made for the text");
    }
    path_ = directory_ + kFile;
    lock_ = lock_directory(directory_);
    try {
        write(text);
    } catch (const Failure &failure) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
        if (lock_ >= 0) {
            close(lock_);
        }
        throw Failure(failure.code(),
                      std::string(failure.what()) + "; set TMPDIR to a directory that has room");
    }
}

EditedFile::~EditedFile() {
    if (discarded_) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    if (lock_ >= 0) {
        close(lock_);
    }
}

// A full disk leaves the text that is there.
void EditedFile::write(const std::string &text) const {
    const std::string other = path_ + ".new";
    const int fd = open(other.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    bool written = fd >= 0 && write_all(fd, text);
    int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (written && rename(other.c_str(), path_.c_str()) != 0) {
        error = errno;
        written = false;
    }
    if (!written) {
        unlink(other.c_str());
        errno = error;
        throw failed(escaped(path_));
    }
}

void EditedFile::edit() const {
    const EditorSignals signals;
    const pid_t pid = fork();
    if (pid < 0) {
        throw failed("the editor cannot be started");
    }
    if (pid == 0) {
        signals.restore();
        execl("/bin/sh", "sh", "-c", kScript, "sh", path_.c_str(), nullptr);
        _exit(127);
    }
    const int status = wait_for(pid);
    if (g_came != 0) {
        throw Failure(ExitCode::failed, std::string("ended by a signal: ") + strsignal(g_came));
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw Failure(ExitCode::failed, "the editor " + ending_of(status));
    }
}

bool EditedFile::is_there() const {
    struct stat status {};
    return stat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string EditedFile::text() const {
    return read_whole_file(path_);
}

bool EditedFile::has_company() const {
    std::error_code ignored;
    std::filesystem::directory_iterator entries(directory_, ignored);
    return std::any_of(begin(entries), end(entries),
                       [&](const auto &entry) { return entry.path().string() != path_; });
}

std::vector<std::string> kept_texts() {
    std::vector<std::string> all;
    std::error_code error;
    for (std::filesystem::directory_iterator at(place(), error), end; !error && at != end;
         at.increment(error)) {
        const std::string directory = at->path().string();
        if (!at->path().filename().string().starts_with(kDirectory)) {
            continue;
        }
        const int lock = lock_directory(directory);
        if (lock >= 0) {
            struct stat status {};
            if (lstat((directory + kFile).c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
                all.push_back(directory + kFile);
            }
            close(lock);
        }
    }
    return all;
}

bool remove_kept_text(const std::string &path) {
    for (const std::string &kept : kept_texts()) {
        std::error_code error;
        if (std::filesystem::equivalent(kept, path, error)) {
            std::filesystem::remove_all(std::filesystem::path(kept).parent_path(), error);
            errno = error.value();
            return !error;
        }
    }
    return true;
}

LastWords::LastWords(const std::string &text) {
    g_last_words = text;
    struct sigaction say {};
    say.sa_handler = say_last_words;
    say.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    for (size_t i = 0; i < std::size(kEnding); ++i) {
        sigaction(kEnding[i], nullptr, &g_before[i]);
        if (g_before[i].sa_handler != SIG_IGN) {
            sigaction(kEnding[i], &say, nullptr);
        }
    }
}

LastWords::~LastWords() {
    for (size_t i = 0; i < std::size(kEnding); ++i) {
        sigaction(kEnding[i], &g_before[i], nullptr);
    }
}

}  // namespace aaactl
