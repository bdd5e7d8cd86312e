// SPDX-License-Identifier: Apache-2.0
//
// The sinks of messages and traces: standard error, the local syslog socket and
// the journal's native socket. One message is one write or one datagram. syslog(3)
// is not used: it takes a lock, its state belongs to the program, and a trace may
// come from a signal handler.

#include "log.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "descriptor.hpp"

namespace aaaplatform {

namespace {

constexpr char kSyslogSocket[] = "/dev/log";
constexpr char kJournalSocket[] = "/run/systemd/journal/socket";
constexpr std::size_t kDatagramSize = 8192;
constexpr timeval kSendTimeout = {0, 200000};

struct SinkName {
    const char *name;
    Sink sink;
};

constexpr SinkName kSinkNames[] = {
    {"stderr", Sink::kStderr}, {"syslog", Sink::kSyslog}, {"journal", Sink::kJournal}, {"none", Sink::kNone}};

const char *socket_path(const char *variable, const char *usual) {
    const char *path = secure_getenv(variable);
    return path != nullptr && *path != '\0' ? path : usual;
}

bool send_datagram(const char *path, const char *data, std::size_t len) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t path_len = std::strlen(path);
    if (path_len >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path, path_len);
    const Descriptor fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        return false;
    }
    // A busy log daemon may delay the caller briefly; one that hangs must not
    // block logins.
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);
    const ssize_t sent = sendto(fd.get(), data, len, MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return sent == static_cast<ssize_t>(len);
}

// A datagram. A field that does not fit is omitted as a whole, so that its
// framing is never cut.
struct Datagram {
    char bytes[kDatagramSize];
    std::size_t len = 0;
    bool full = false;

    void add(const char *data, std::size_t n) {
        if (full || n > sizeof bytes - len) {
            full = true;
            return;
        }
        std::memcpy(bytes + len, data, n);
        len += n;
    }

    // A field of any bytes: the name, a line feed, the length in eight bytes, the lowest
    // first, the value and a line feed. No value can begin another field.
    void field(const char *name, const char *value, std::size_t n) {
        constexpr std::size_t kLengthSize = 8;
        if (full || std::strlen(name) + kLengthSize + n + 2 > sizeof bytes - len) {
            return;
        }
        char length[kLengthSize];
        for (std::size_t i = 0; i < kLengthSize; ++i) {
            length[i] = static_cast<char>(n >> (8 * i) & 0xffu);
        }
        add(name, std::strlen(name));
        add("\n", 1);
        add(length, sizeof length);
        add(value, n);
        add("\n", 1);
    }

    void field(const char *name, const char *value) {
        if (value != nullptr) {
            field(name, value, std::strlen(value));
        }
    }

    // "NAME=value\n"
    void number(const char *name, unsigned long value) {
        char text[24];
        std::snprintf(text, sizeof text, "%lu", value);
        add(name, std::strlen(name));
        add("=", 1);
        add(text, std::strlen(text));
        add("\n", 1);
    }
};

constexpr std::size_t kNameSize = 65;

// Copies the last component of a path, without what ends a name in lines of syslog.
void take_name(char (&name)[kNameSize], const char *path) {
    const char *slash = std::strrchr(path, '/');
    const char *last = slash != nullptr ? slash + 1 : path;
    make_visible(name, sizeof name, last, std::strlen(last), " \t:[]");
}

// The caller of a set-user-ID program chooses its first argument. There the name is that
// of the executed file; it is empty in other processes.
constinit char g_file_name[kNameSize] = "";

[[gnu::constructor(200)]] void find_file_name() {
    char path[PATH_MAX];
    const ssize_t n = getauxval(AT_SECURE) != 0 ? readlink("/proc/self/exe", path, sizeof path - 1) : 0;
    if (n > 0) {
        path[n] = '\0';
        take_name(g_file_name, path);
    }
}

const char *program_name(char (&name)[kNameSize]) {
    if (*g_file_name != '\0') {
        return g_file_name;
    }
    take_name(name, program_invocation_short_name);
    return *name != '\0' ? name : "-";
}

// The journal ignores a whole entry for some of the names that it does not allow.
bool is_field_name(const char *name) {
    constexpr std::size_t kMost = 64;
    if (name == nullptr || *name < 'A' || *name > 'Z') {
        return false;
    }
    const std::size_t len = std::strspn(name, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_");
    return len <= kMost && name[len] == '\0';
}

bool emit_journal(const LineInfo &info, const char *text, std::size_t len) {
    char name[kNameSize];
    Datagram datagram;
    datagram.number("PRIORITY", info.severity & 7u);
    datagram.number("SYSLOG_FACILITY", LOG_FAC(LOG_AUTHPRIV));
    datagram.field("SYSLOG_IDENTIFIER", program_name(name));
    datagram.number("SYSLOG_PID", static_cast<unsigned long>(getpid()));
    datagram.field("AAA_MNEMONIC", info.mnemonic);
    if (info.msg_id != 0) {
        char id[16];
        std::snprintf(id, sizeof id, "0x%08x", info.msg_id);
        datagram.field("AAA_MSG_ID", id);
    }
    datagram.field("MESSAGE", text, len);
    for (uint32_t i = 0; i < info.field_count; ++i) {
        if (is_field_name(info.fields[i].name)) {
            datagram.field(info.fields[i].name, info.fields[i].value);
        }
    }
    return send_datagram(socket_path("AAA_JOURNAL_SOCKET", kJournalSocket), datagram.bytes, datagram.len);
}

// "<priority>program[pid]: text" without a time: the receiver adds it, and local
// time would need the time zone lock.
bool emit_syslog(const LineInfo &info, const char *text, std::size_t len) {
    char name[kNameSize];
    Datagram datagram;
    const int n = std::snprintf(datagram.bytes, sizeof datagram.bytes,
                                "<%u>%s[%d]: ", static_cast<unsigned>(LOG_AUTHPRIV) | (info.severity & 7u),
                                program_name(name), static_cast<int>(getpid()));
    datagram.len = n > 0 ? static_cast<std::size_t>(n) : 0;
    datagram.add(text, len);
    return send_datagram(socket_path("AAA_SYSLOG_SOCKET", kSyslogSocket), datagram.bytes, datagram.len);
}

// A write to a pipe or socket whose reader has gone raises a signal, which would end a
// program for its log. It is held back in this thread while one of these exists.
class PipeSignalBlocked {
  public:
    PipeSignalBlocked() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &set_, &before_);
    }
    ~PipeSignalBlocked() {
        const timespec at_once{};
        if (!was_pending_) {
            sigtimedwait(&set_, nullptr, &at_once);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    PipeSignalBlocked(const PipeSignalBlocked &) = delete;
    PipeSignalBlocked &operator=(const PipeSignalBlocked &) = delete;

  private:
    sigset_t set_;
    sigset_t before_;
    bool was_pending_;
};

bool write_all(int fd, const char *data, std::size_t len) {
    const PipeSignalBlocked blocked;
    while (len > 0) {
        const ssize_t n = write(fd, data, len);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        if (n > 0) {
            data += n;
            len -= static_cast<std::size_t>(n);
        }
    }
    return true;
}

// A process that was started without descriptor 2 has no standard error: what is opened
// later and gets the number is one of its own, a file or the connection of a protocol.
constinit bool g_started_without_stderr = false;

[[gnu::constructor(200)]] void look_for_stderr() {
    g_started_without_stderr = fcntl(STDERR_FILENO, F_GETFD) < 0 && errno == EBADF;
}

bool is_local_socket(int fd) {
    int domain = 0;
    socklen_t size = sizeof domain;
    return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

// Whether descriptor 2 is standard error, and not a file of the program that has closed it:
// a message must not get into a database or a protocol. Redirections only write. A message
// for which standard error was asked may also go to a file that is read and written, in
// which test frameworks collect output. The platform's own descriptors are all above 2.
bool is_stderr(bool asked_for) {
    const int flags = fcntl(STDERR_FILENO, F_GETFL);
    struct stat status;
    if (g_started_without_stderr || flags < 0 || (flags & O_ACCMODE) == O_RDONLY || (flags & O_PATH) != 0 ||
        fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    if (S_ISREG(status.st_mode)) {
        const bool only_writes = (flags & O_ACCMODE) == O_WRONLY || (flags & O_APPEND) != 0;
        return only_writes || asked_for;
    }
    return S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode) ||
           (S_ISSOCK(status.st_mode) && is_local_socket(STDERR_FILENO));
}

bool emit_stderr(const char *text, std::size_t len, bool asked_for) {
    if (!is_stderr(asked_for)) {
        return false;
    }
    char line[kDatagramSize];
    const std::size_t n = len < sizeof line - 1 ? len : sizeof line - 1;
    std::memcpy(line, text, n);
    line[n] = '\n';
    return write_all(STDERR_FILENO, line, n + 1);
}

bool emit_one(Sink sink, const LineInfo &info, const char *text, std::size_t len) {
    switch (sink) {
        case Sink::kStderr:
            return emit_stderr(text, len, true);
        case Sink::kSyslog:
            return emit_syslog(info, text, len);
        case Sink::kJournal:
            return emit_journal(info, text, len);
        case Sink::kUnset:
        case Sink::kNone:
            break;
    }
    return true;
}

// JOURNAL_STREAM is "device:inode" of the stream that the service manager
// connected; it counts only while standard error still is that stream.
bool stderr_is_journal() {
    const char *stream = secure_getenv("JOURNAL_STREAM");
    struct stat st;
    if (stream == nullptr || fstat(STDERR_FILENO, &st) != 0) {
        return false;
    }
    char own[48];
    std::snprintf(own, sizeof own, "%lu:%lu", static_cast<unsigned long>(st.st_dev),
                  static_cast<unsigned long>(st.st_ino));
    return std::strcmp(stream, own) == 0;
}

}  // namespace

bool parse_sink(const char *word, Sink *sink) noexcept {
    *sink = Sink::kUnset;
    if (word == nullptr || *word == '\0') {
        return true;
    }
    for (const SinkName &row : kSinkNames) {
        if (std::strcmp(word, row.name) == 0) {
            *sink = row.sink;
            return true;
        }
    }
    return false;
}

Sink default_sink() noexcept {
    return stderr_is_journal() ? Sink::kJournal : Sink::kSyslog;
}

void emit(Sink sink, const LineInfo &info, const char *text, std::size_t len) noexcept {
    const int saved_errno = errno;
    bool done = emit_one(sink, info, text, len);
    if (!done && sink == Sink::kJournal) {
        done = emit_one(Sink::kSyslog, info, text, len);
    }
    if (!done && sink != Sink::kStderr && info.severity <= kLogWarning) {
        emit_stderr(text, len, false);
    }
    errno = saved_errno;
}

std::size_t format_bounded(char *out, std::size_t size, const char *format, va_list arguments) noexcept {
    // Formats come from the library's catalog and traces, where the compiler has
    // checked them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int n = std::vsnprintf(out, size, format, arguments);
#pragma GCC diagnostic pop
    if (n < 0) {
        // The text cannot be converted (an invalid multibyte argument); the format
        // alone is still informative.
        const std::size_t len = strnlen(format, size - 1);
        std::memcpy(out, format, len);
        out[len] = '\0';
        return len;
    }
    if (static_cast<std::size_t>(n) < size) {
        return static_cast<std::size_t>(n);
    }
    // Not within a character, of which the first bytes would be shown as escapes.
    std::size_t cut = size - 4;
    while (cut > 0 && (static_cast<unsigned char>(out[cut]) & 0xc0u) == 0x80) {
        --cut;
    }
    std::memcpy(out + cut, "...", 4);
    return cut + 3;
}

}  // namespace aaaplatform
