// SPDX-License-Identifier: Apache-2.0
//
// Catalog logging: a record and its arguments become one line, unless the
// record's limit holds it back. The limit's 28 bytes of state belong to this
// file: offset 4 holds the second at which the current period began (of the
// monotonic clock, plus one; 0 = no message yet), offset 8 the number of
// messages held back since. Both are changed with atomic operations only.

#include "platform/logging.h"

#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "aaa/result_codes.h"
#include "log.hpp"

#pragma weak aaa_program_take_log  // of few programs

namespace aaaplatform {

namespace {

constexpr std::size_t kTextSize = 2048;
constexpr std::size_t kLineSize = 4096;

static_assert(sizeof(kel_msg_rec_t) == 72 && sizeof(kel_msg_limit_t) == 32);

constinit std::atomic<Sink> g_sink{Sink::kUnset};

// Reads AAA_LOG once. An unknown sink is reported to the default one.
Sink choose_sink() {
    Sink sink;
    const char *word = secure_getenv("AAA_LOG");
    const bool known = parse_sink(word, &sink);
    if (sink == Sink::kUnset) {
        sink = default_sink();
    }
    g_sink.store(sink, std::memory_order_relaxed);
    if (!known) {
        log(kLogWarning, "BAD_SETTING",
            "AAA_LOG is \"%.32s\", not stderr, syslog, journal or none; using the default log", word);
    }
    return sink;
}

Sink current_sink() {
    const Sink sink = g_sink.load(std::memory_order_relaxed);
    return sink != Sink::kUnset ? sink : choose_sink();
}

// A word of a record, or "-". Records come from every library of the program.
template <std::size_t Size>
struct Word {
    char text[Size];
    explicit Word(const char *word) {
        const char *given = word != nullptr ? word : "-";
        make_visible(text, Size, given, strnlen(given, 2 * Size));
    }
};

// Builds "%FACILITY-CATEGORY-severity-MNEMONIC : text" and sends it.
void emit_record(const kel_msg_rec_t &record, uint32_t severity, const char *text, std::size_t len,
                 const aaa_platform_log_field_t *fields = nullptr, uint32_t count = 0) {
    const bool is_offered = aaa_program_take_log != nullptr;
    if (!is_offered && current_sink() == Sink::kNone) {
        return;
    }
    const Word<33> facility(record.facility);
    const Word<33> category(record.category);
    const Word<65> mnemonic(record.mnemonic);
    char line[kLineSize];
    const int n = std::snprintf(line, sizeof line, "%%%s-%s-%u-%s : ", facility.text, category.text, severity,
                                mnemonic.text);
    const std::size_t prefix = n > 0 ? static_cast<std::size_t>(n) : 0;
    const std::size_t total = prefix + make_visible(line + prefix, sizeof line - prefix, text, len);
    if (is_offered && aaa_program_take_log(severity, line, static_cast<uint32_t>(total)) != 0) {
        return;
    }
    emit(current_sink(),
         LineInfo{severity, record.mnemonic != nullptr ? mnemonic.text : nullptr, record.msg_id, fields,
                  fields != nullptr ? count : 0},
         line, total);
}

// ---- rate limit --------------------------------------------------------------

struct LimitState {
    std::atomic<uint32_t> *began;
    std::atomic<uint32_t> *held_back;
};

static_assert(sizeof(std::atomic<uint32_t>) == 4 && std::atomic<uint32_t>::is_always_lock_free);

LimitState state_of(kel_msg_limit_t *limit) {
    auto *base = reinterpret_cast<unsigned char *>(limit);
    return {reinterpret_cast<std::atomic<uint32_t> *>(base + 4),
            reinterpret_cast<std::atomic<uint32_t> *>(base + 8)};
}

// Seconds of the monotonic clock plus one, so that 0 stays "never".
uint32_t now_seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint32_t>(now.tv_sec) + 1;
}

struct Verdict {
    bool pass;
    uint32_t held_back;  // messages held back in the period that ended
    uint32_t elapsed;    // seconds since the period began
};

// The first message of a period passes. Of several threads that find the period
// over, the one that starts the next period passes.
Verdict ask_limit(kel_msg_limit_t *limit) {
    if (limit == nullptr || limit->period == 0) {
        return {true, 0, 0};
    }
    const LimitState state = state_of(limit);
    const uint32_t now = now_seconds();
    uint32_t began = state.began->load(std::memory_order_relaxed);
    if (began == 0 || now - began >= limit->period) {
        if (state.began->compare_exchange_strong(began, now, std::memory_order_relaxed)) {
            return {true, state.held_back->exchange(0, std::memory_order_relaxed), now - began};
        }
    }
    state.held_back->fetch_add(1, std::memory_order_relaxed);
    return {false, 0, 0};
}

void report_held_back(const kel_msg_rec_t &record, uint32_t severity, const Verdict &verdict) {
    char text[96];
    const int n =
        std::snprintf(text, sizeof text, "%u messages of this kind were held back in the last %u seconds",
                      verdict.held_back, verdict.elapsed);
    emit_record(record, severity, text, n > 0 ? static_cast<std::size_t>(n) : 0);
}

}  // namespace

void log(uint32_t severity, const char *mnemonic, const char *format, ...) noexcept {
    const int saved_errno = errno;
    kel_msg_rec_t record{};
    record.facility = "AAA";
    record.category = "PLATFORM";
    record.mnemonic = mnemonic;
    char text[kTextSize];
    va_list arguments;
    va_start(arguments, format);
    const std::size_t len = format_bounded(text, sizeof text, format, arguments);
    va_end(arguments);
    emit_record(record, severity, text, len);
    errno = saved_errno;
}

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

void kel_errmsg(const void *record, uint32_t severity, ...) {
    const int saved_errno = errno;
    if (record == nullptr) {
        log(kLogError, "NO_RECORD", "A message was logged without its catalog record");
        errno = saved_errno;
        return;
    }
    const auto *rec = static_cast<const kel_msg_rec_t *>(record);
    const uint32_t level = severity & 7u;
    const Verdict verdict = ask_limit(rec->limit);
    if (verdict.pass) {
        if (verdict.held_back != 0) {
            report_held_back(*rec, level, verdict);
        }
        char text[kTextSize];
        va_list arguments;
        va_start(arguments, severity);
        const std::size_t len =
            format_bounded(text, sizeof text, rec->format != nullptr ? rec->format : "(no text)", arguments);
        va_end(arguments);
        emit_record(*rec, level, text, len);
    }
    errno = saved_errno;
}

void aaa_platform_log(const void *record, uint32_t severity, const aaa_platform_log_field_t *fields,
                      uint32_t count, const char *text) {
    const int saved_errno = errno;
    if (record == nullptr) {
        kel_errmsg(nullptr, severity);
        return;
    }
    const auto *rec = static_cast<const kel_msg_rec_t *>(record);
    const uint32_t level = severity & 7u;
    const Verdict verdict = ask_limit(rec->limit);
    if (verdict.pass) {
        if (verdict.held_back != 0) {
            report_held_back(*rec, level, verdict);
        }
        const char *given = text != nullptr ? text : "(no text)";
        emit_record(*rec, level, given, strnlen(given, kTextSize), fields, count);
    }
    errno = saved_errno;
}

}  // extern "C"
