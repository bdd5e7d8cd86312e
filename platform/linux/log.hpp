// SPDX-License-Identifier: Apache-2.0
//
// Output of the platform's messages and of the library's records and traces.
// All functions may be called from any thread, from the library's worker while an
// unload joins it, after fork, and (with a format that needs no memory) from a
// signal handler: they take no lock, allocate nothing, do not call the loader, and
// preserve errno.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "platform/control.h"

namespace aaaplatform {

// Severities are the syslog levels.
inline constexpr uint32_t kLogError = 3;
inline constexpr uint32_t kLogWarning = 4;
inline constexpr uint32_t kLogInfo = 6;

// Logs "%AAA-PLATFORM-<severity>-<mnemonic> : text". The text names the
// file or variable and the administrator's remedy.
[[gnu::format(printf, 3, 4)]] void log(uint32_t severity, const char *mnemonic, const char *format,
                                       ...) noexcept;

enum class Sink : uint8_t { kUnset, kStderr, kSyslog, kJournal, kNone };

// Fields of an emitted line besides its text. Null fields are omitted.
struct LineInfo {
    uint32_t severity;
    const char *mnemonic;
    uint32_t msg_id;
    const aaa_platform_log_field_t *fields = nullptr;  // for the journal
    uint32_t field_count = 0;
};

// Parses the name of a sink; kUnset for null and for an empty word. Returns false
// for an unknown name.
bool parse_sink(const char *word, Sink *sink) noexcept;

// The sink that suits this process: the journal when standard error is
// connected to it, else syslog.
Sink default_sink() noexcept;

// Writes one line to a sink; its text and its mnemonic are as make_visible() returns them.
// A line that a sink refuses is passed on: from the journal to syslog, and warnings and
// worse to standard error.
void emit(Sink sink, const LineInfo &info, const char *text, std::size_t len) noexcept;

// Copies text and makes visible what could forge another line or hide a part of this
// one: control characters ("\n", "\x1b", "\u{85}"), separators of lines, controls of the
// writing direction, invisible characters, bytes that are not UTF-8 ("\x9b"), and the
// characters in also_escaped. A text that does not fit ends in "...". Returns the
// length; always terminated. size is at least 4.
std::size_t make_visible(char *out, std::size_t size, const char *text, std::size_t len,
                         const char *also_escaped = "") noexcept;

// Formats into out; a text that does not fit ends in "...". Returns the length.
std::size_t format_bounded(char *out, std::size_t size, const char *format, va_list arguments) noexcept;

}  // namespace aaaplatform
