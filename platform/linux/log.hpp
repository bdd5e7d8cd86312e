// SPDX-License-Identifier: Apache-2.0
//
// Where the platform's own messages and the library's records and traces go.
// Everything here may be called from any thread, from the library's worker
// while it is being joined by an unload, after fork, and (with a format that
// needs no memory) from a signal handler: no lock, no allocation, no loader
// call, errno preserved.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace aaaplatform {

// Severities are the syslog levels.
inline constexpr uint32_t kLogError = 3;
inline constexpr uint32_t kLogWarning = 4;
inline constexpr uint32_t kLogInfo = 6;

// Logs "%AAA-PLATFORM-<severity>-<mnemonic> : text". Say which file or variable
// is concerned and what the administrator should do.
[[gnu::format(printf, 3, 4)]] void log(uint32_t severity, const char *mnemonic, const char *format,
                                       ...) noexcept;

enum class Sink : uint8_t { kUnset, kStderr, kSyslog, kJournal, kNone };

// What one emitted line carries besides its text. Null fields are left out.
struct LineInfo {
    uint32_t severity;
    const char *mnemonic;
    uint32_t msg_id;
};

// Parses the name of a sink; kUnset for null and for an empty word.
// Returns false for a word that names no sink.
bool parse_sink(const char *word, Sink *sink) noexcept;

// The sink that suits this process: the journal when standard error is
// connected to it, else syslog.
Sink default_sink() noexcept;

// Writes one line of text (control characters already made harmless) to a
// sink. A line that its sink refuses goes to the next one: journal, syslog,
// and, for warnings and worse, standard error.
void emit(Sink sink, const LineInfo &info, const char *text, std::size_t len) noexcept;

// Copies text and makes control characters visible ("\n", "\x1b"), so that no
// text can forge a second line. Returns the length; always terminated.
std::size_t make_visible(char *out, std::size_t size, const char *text, std::size_t len) noexcept;

// Formats into out; a text that does not fit ends in "...". Returns the length.
std::size_t format_bounded(char *out, std::size_t size, const char *format, va_list arguments) noexcept;

}  // namespace aaaplatform
