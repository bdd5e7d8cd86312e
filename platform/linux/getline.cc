// SPDX-License-Identifier: Apache-2.0
//
// Line editor, on libedit with a reader of its own. The reader waits with poll()
// until the time limit that is running when the read begins (the process's
// alarm). It does not rely on the signal: the kernel may deliver it to another
// thread, and the read would never end.
//
// Control-C cancels the line, as it does where the library reads from the
// terminal itself; keyboard signals are off while a line is edited.

#include <histedit.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/terminal.h"

namespace aaaplatform {

namespace {

constexpr uint32_t kFirstOption = 2;
constexpr uint32_t kLastOption = 7;
constexpr int64_t kGraceMs = 20;          // lets the alarm's handler run before the read ends
constexpr std::size_t kMaxInput = 65536;  // characters of one line; a pipe may never deliver a line feed

// Bytes that are not a character of the locale pass through the editor as unused
// code points and are converted back.
constexpr wchar_t kByteEscape = 0xdc00;

struct Editor {
    EditLine *el;
    const char *prompt;
    char *line;  // the text returned last
    std::size_t line_size;
    uint32_t options[kLastOption + 1];
    wchar_t pending[4];  // decoded, not yet asked for
    unsigned pending_count;
    std::size_t read_count;
    int64_t deadline_ms;  // 0 = no time limit
    bool return_on_signal;
    bool utf8;
    bool ended_by_signal;
    bool cancelled;
};

Editor *editor_of(EditLine *el) {
    void *data = nullptr;
    el_get(el, EL_CLIENTDATA, &data);
    return static_cast<Editor *>(data);
}

// ---- waiting -----------------------------------------------------------------

int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Milliseconds until the alarm, rounded up; 0 = none is running.
int64_t alarm_ms() {
    itimerval timer{};
    if (getitimer(ITIMER_REAL, &timer) != 0) {
        return 0;
    }
    return static_cast<int64_t>(timer.it_value.tv_sec) * 1000 + (timer.it_value.tv_usec + 999) / 1000;
}

int poll_timeout(const Editor &editor) {
    if (editor.deadline_ms == 0) {
        return -1;
    }
    const int64_t left = editor.deadline_ms - now_ms();
    return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

// Whether an interrupted wait ends the read. While a time limit runs, only the
// limit does: a resized window or an ended child is not a time-out. Without a
// limit, any signal does if the program asked for that.
bool signal_ends_read(const Editor &editor) {
    return editor.deadline_ms != 0 ? alarm_ms() == 0 : editor.return_on_signal;
}

enum class Wait { kReady, kEnded };

Wait wait_for_input(Editor &editor, int fd) {
    for (;;) {
        pollfd poller{fd, POLLIN, 0};
        const int n = poll(&poller, 1, poll_timeout(editor));
        if (n > 0 || (n < 0 && errno != EINTR)) {
            return Wait::kReady;  // read() reports an error
        }
        if (n == 0 || signal_ends_read(editor)) {
            editor.ended_by_signal = true;
            return Wait::kEnded;
        }
    }
}

// ---- reading -----------------------------------------------------------------

// Bytes that the C library has read ahead come first.
bool take_buffered(unsigned char *byte) {
    if (stdin->_IO_read_ptr >= stdin->_IO_read_end) {
        return false;
    }
    const int c = getc_unlocked(stdin);
    *byte = static_cast<unsigned char>(c);
    return c != EOF;
}

// 1 and a byte, 0 at the end of the input, -1 with errno set.
int read_byte(Editor &editor, unsigned char *byte) {
    if (take_buffered(byte)) {
        return 1;
    }
    const int fd = fileno(stdin);
    for (;;) {
        if (wait_for_input(editor, fd) == Wait::kEnded) {
            errno = EINTR;
            return -1;
        }
        const ssize_t n = read(fd, byte, 1);
        if (n >= 0) {
            return static_cast<int>(n);
        }
        if (errno != EINTR && errno != EAGAIN) {
            return -1;
        }
    }
}

unsigned continuation_bytes(unsigned char lead) {
    return lead >= 0xc2 && lead <= 0xdf   ? 1
           : lead >= 0xe0 && lead <= 0xef ? 2
           : lead >= 0xf0 && lead <= 0xf4 ? 3
                                          : 0;
}

// Rules out overlong forms, surrogates, and numbers above the last code point.
bool valid_character(uint32_t c, unsigned continuations) {
    constexpr uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    return c >= kSmallest[continuations] && c <= 0x10ffff && (c < 0xd800 || c > 0xdfff);
}

wchar_t escaped(unsigned char byte) {
    return byte < 0x80 ? static_cast<wchar_t>(byte) : kByteEscape + byte;
}

// Reads the rest of a character that begins with lead. Bytes that do not form a
// character are queued unchanged.
int read_character(Editor &editor, unsigned char lead, wchar_t *out) {
    const unsigned more = editor.utf8 ? continuation_bytes(lead) : 0;
    unsigned char bytes[4] = {lead};
    uint32_t c = lead & (0x3fu >> more);
    unsigned got = 0;
    while (got < more) {
        const int n = read_byte(editor, &bytes[got + 1]);
        if (n < 0) {
            return n;
        }
        if (n == 0) {
            break;
        }
        const unsigned char next = bytes[++got];
        if ((next & 0xc0) != 0x80) {
            break;
        }
        c = c << 6 | (next & 0x3fu);
        if (got == more && valid_character(c, more)) {
            *out = static_cast<wchar_t>(c);
            return 1;
        }
    }
    editor.pending_count = 0;
    for (unsigned i = got; i >= 1; --i) {
        editor.pending[editor.pending_count++] = escaped(bytes[i]);  // taken from the end
    }
    *out = escaped(lead);
    return 1;
}

// The editor's reader: 1 and a character, 0 at the end of the input, -1.
int get_character(EditLine *el, wchar_t *out) {
    Editor &editor = *editor_of(el);
    if (editor.pending_count != 0) {
        *out = editor.pending[--editor.pending_count];
        return 1;
    }
    if (++editor.read_count > kMaxInput) {
        return 0;
    }
    unsigned char byte = 0;
    const int n = read_byte(editor, &byte);
    if (n <= 0) {
        return n;
    }
    if (byte < 0x80) {
        *out = static_cast<wchar_t>(byte);
        return 1;
    }
    return read_character(editor, byte, out);
}

// ---- the line ------------------------------------------------------------------

std::size_t put_character(char *out, wchar_t wide) {
    const auto c = static_cast<uint32_t>(wide);
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    if (c >= kByteEscape + 0x80u && c <= kByteEscape + 0xffu) {
        out[0] = static_cast<char>(c - kByteEscape);
        return 1;
    }
    const unsigned more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr uint32_t kLead[] = {0, 0xc0, 0xe0, 0xf0};
    out[0] = static_cast<char>(kLead[more] | c >> (6 * more));
    for (unsigned i = 1; i <= more; ++i) {
        out[i] = static_cast<char>(0x80u | (c >> (6 * (more - i)) & 0x3fu));
    }
    return more + 1;
}

void drop_line(Editor &editor) {
    if (editor.line != nullptr) {
        explicit_bzero(editor.line, editor.line_size);
        std::free(editor.line);
        editor.line = nullptr;
        editor.line_size = 0;
    }
}

// A password typed at a prompt for a name should not remain in memory. This is
// the editor's own buffer, returned as const; it holds the line also when it was
// cancelled. Not reachable, and not wiped: cut words, the screen image, and the
// smaller buffers that a long line has outgrown. Hidden input does not pass
// through the editor.
void wipe_typed(Editor &editor) {
    const LineInfoW *typed = el_wline(editor.el);
    if (typed != nullptr && typed->lastchar > typed->buffer) {
        const auto count = static_cast<std::size_t>(typed->lastchar - typed->buffer);
        explicit_bzero(const_cast<wchar_t *>(typed->buffer), count * sizeof(wchar_t));
    }
    explicit_bzero(editor.pending, sizeof editor.pending);
}

char *keep_line(Editor &editor, const wchar_t *wide, std::size_t count) {
    editor.line_size = count * 4 + 1;
    editor.line = static_cast<char *>(std::malloc(editor.line_size));
    if (editor.line == nullptr) {
        return nullptr;
    }
    char *at = editor.line;
    for (std::size_t i = 0; i < count; ++i) {
        at += put_character(at, wide[i]);
    }
    *at = '\0';
    return editor.line;
}

// ---- set-up --------------------------------------------------------------------

unsigned char cancel_line(EditLine *el, int) {
    editor_of(el)->cancelled = true;
    return CC_EOF;
}

// The editor's prompt function returns a plain char pointer and does not write.
char *prompt_of(EditLine *el) {
    return const_cast<char *>(editor_of(el)->prompt);
}

void set_up(Editor &editor) {
    EditLine *el = editor.el;
    el_set(el, EL_CLIENTDATA, &editor);
    el_set(el, EL_EDITOR, "emacs");
    el_set(el, EL_PROMPT, prompt_of);
    el_set(el, EL_SIGNAL, 0);
    el_set(el, EL_GETCFN, get_character);
    el_set(el, EL_SETTY, "-d", "-isig", nullptr);
    // The wide form: the other one copies both texts and never frees them.
    el_wset(el, EL_ADDFN, L"aaa-cancel", L"Cancel the line", cancel_line);
    el_set(el, EL_BIND, "^C", "aaa-cancel", nullptr);
    // A login prompt edits one line; it must not offer the editor's command language.
    el_set(el, EL_BIND, "\\ex", "ed-unassigned", nullptr);
    el_set(el, EL_BIND, "\\eX", "ed-unassigned", nullptr);
}

void begin_read(Editor &editor, const char *prompt) {
    const int64_t limit = alarm_ms();
    editor.deadline_ms = limit != 0 ? now_ms() + limit + kGraceMs : 0;
    editor.prompt = prompt != nullptr ? prompt : "";
    editor.pending_count = 0;
    editor.read_count = 0;
    editor.ended_by_signal = false;
    editor.cancelled = false;
    drop_line(editor);
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

void *getline_init(void) {
    auto *editor = static_cast<Editor *>(std::calloc(1, sizeof(Editor)));
    if (editor == nullptr) {
        return nullptr;
    }
    editor->el = el_init(program_invocation_short_name, stdin, stdout, stderr);
    if (editor->el == nullptr) {
        std::free(editor);
        return nullptr;
    }
    editor->prompt = "";
    editor->utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    set_up(*editor);
    return editor;
}

cerrno getline_configure(void *handle, uint32_t option, uint32_t size, const void *value) {
    auto *editor = static_cast<Editor *>(handle);
    if (editor == nullptr || value == nullptr || option < kFirstOption || option > kLastOption ||
        size != sizeof editor->options[0]) {
        return EINVAL;
    }
    std::memcpy(&editor->options[option], value, size);
    return 0;
}

void gl_ret_on_eintr_enable(void *handle) {
    if (handle != nullptr) {
        static_cast<Editor *>(handle)->return_on_signal = true;
    }
}

char *qm_getline(void *handle, const char *prompt, const char *text, int *ok) {
    auto *editor = static_cast<Editor *>(handle);
    if (editor == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    begin_read(*editor, prompt);
    if (text != nullptr && *text != '\0') {
        el_push(editor->el, text);
    }
    // Before the prompt: keys typed in answer must not reach the terminal's line
    // discipline, in which Control-C is a signal.
    el_set(editor->el, EL_PREP_TERM, 1);
    // The caller recognises a time-out by errno, regardless of the pointer.
    errno = 0;
    int count = 0;
    const wchar_t *wide = el_wgets(editor->el, &count);
    const int error = errno;
    char *line = nullptr;
    if (wide != nullptr && count > 0 && !editor->ended_by_signal && !editor->cancelled) {
        line = keep_line(*editor, wide, static_cast<std::size_t>(count));
    }
    wipe_typed(*editor);
    if (editor->cancelled && ok != nullptr) {
        *ok = 0;
    }
    if (editor->ended_by_signal) {
        errno = EINTR;
    } else if (line != nullptr || editor->cancelled || count == 0 || error == EINTR) {
        errno = 0;
    } else {
        errno = error;
    }
    return line;
}

void getline_free(void *handle) {
    auto *editor = static_cast<Editor *>(handle);
    if (editor == nullptr) {
        return;
    }
    drop_line(*editor);
    el_end(editor->el);
    std::free(editor);
}

}  // extern "C"
