// SPDX-License-Identifier: Apache-2.0
//
// Tracing: the debug flags and the trace lines. Testing a flag is one relaxed load
// of a mask, which the library's list code reads itself on every call.
//
//     2025-03-01T12:00:00.123456Z 4711/4712 aaa[8 avlist]: text
//
// A text with line feeds gives one such line per part, so that the output can be
// sorted and searched line by line.

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "aaa/result_codes.h"
#include "loaded_objects.hpp"
#include "log.hpp"
#include "platform/control.h"
#include "platform/logging.h"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr std::size_t kTextSize = 4096;
constexpr std::size_t kLineSize = 6144;

// By flag. Flags 4 and 7 have no area, but 7 is used by a dump of replies.
constexpr const char *kAreas[AAA_PLATFORM_DEBUG_FLAGS] = {
    "lifecycle",    "request", "message", "author-data", "flag4",   "lines",
    "server-group", "flag7",   "avlist",  "malloc",      "iov-dump"};

constexpr uint32_t kAllFlags = (1u << AAA_PLATFORM_DEBUG_FLAGS) - 1;

constinit std::atomic<uint32_t> g_mask{0};
constinit std::atomic<Sink> g_output{Sink::kUnset};

// Unknown flags that were reported already, by flag modulo 32: the record has no
// limit of its own, and a call with a wrong flag is usually repeated.
constinit std::atomic<uint32_t> g_reported{0};

// The catalog record for a wrong flag is the library's. It is copied when the
// library starts tracing, because it may be needed after an unload.
struct RecordCopy {
    kel_msg_rec_t record;
    char texts[4][96];
};

constinit RecordCopy g_bad_flag_copy{};
constinit std::atomic<const kel_msg_rec_t *> g_bad_flag_record{nullptr};
constinit std::atomic<bool> g_bad_flag_taken{false};

const char *keep_text(char (&slot)[96], const char *text) {
    std::snprintf(slot, sizeof slot, "%s", text != nullptr ? text : "-");
    return slot;
}

bool copy_bad_flag_record(void *symbol, void *) {
    const auto accessor = reinterpret_cast<const kel_msg_rec_t *(*)()>(symbol);
    RecordCopy &copy = g_bad_flag_copy;
    copy.record = *accessor();
    copy.record.limit = nullptr;
    copy.record.format = keep_text(copy.texts[0], copy.record.format);
    copy.record.facility = keep_text(copy.texts[1], copy.record.facility);
    copy.record.category = keep_text(copy.texts[2], copy.record.category);
    copy.record.mnemonic = keep_text(copy.texts[3], copy.record.mnemonic);
    g_bad_flag_record.store(&copy.record, std::memory_order_release);
    return true;
}

void report_bad_flag(uint32_t flag) {
    const uint32_t bit = 1u << (flag % 32);
    if ((g_reported.fetch_or(bit, std::memory_order_relaxed) & bit) != 0) {
        return;
    }
    const kel_msg_rec_t *record = g_bad_flag_record.load(std::memory_order_acquire);
    if (record != nullptr) {
        kel_errmsg(record, kLogError, static_cast<int>(flag));
    } else {
        log(kLogError, "INVALID_DEBUG_FLAG", "The AAA debug flag %d does not exist", static_cast<int>(flag));
    }
}

// ---- AAA_DEBUG ---------------------------------------------------------------

bool is_separator(char c) {
    return c == ',' || c == ' ' || c == '\t' || c == ';';
}

// A decimal flag number at *at; moves *at past it. Large numbers remain large
// instead of wrapping to a valid flag.
bool take_number(const char **at, const char *end, uint32_t *number) {
    const char *p = *at;
    uint32_t n = 0;
    while (p < end && *p >= '0' && *p <= '9') {
        n = n > 100000 ? n : n * 10 + static_cast<uint32_t>(*p - '0');
        ++p;
    }
    *number = n;
    const bool found = p != *at;
    *at = p;
    return found;
}

uint32_t range_mask(uint32_t first, uint32_t last) {
    uint32_t mask = 0;
    for (uint32_t flag = first; flag <= last && flag < AAA_PLATFORM_DEBUG_FLAGS; ++flag) {
        mask |= 1u << flag;
    }
    return mask;
}

// "3" or "1-3"; false when the word is not a number. *ok is cleared for a number
// without a flag.
bool parse_numbers(const char *word, const char *end, uint32_t *mask, bool *ok) {
    uint32_t first;
    if (!take_number(&word, end, &first)) {
        return false;
    }
    uint32_t last = first;
    if (word < end && *word == '-') {
        ++word;
        if (!take_number(&word, end, &last)) {
            return false;
        }
    }
    if (word != end || last < first) {
        return false;
    }
    *mask |= range_mask(first, last);
    if (last >= AAA_PLATFORM_DEBUG_FLAGS) {
        *ok = false;
        report_bad_flag(last);
    }
    return true;
}

bool parse_name(const char *word, std::size_t len, uint32_t *mask) {
    const auto is = [&](const char *name) {
        return std::strlen(name) == len && std::memcmp(word, name, len) == 0;
    };
    if (is("all")) {
        *mask |= kAllFlags;
        return true;
    }
    if (is("none")) {
        *mask = 0;
        return true;
    }
    for (uint32_t flag = 0; flag < AAA_PLATFORM_DEBUG_FLAGS; ++flag) {
        if (is(kAreas[flag])) {
            *mask |= 1u << flag;
            return true;
        }
    }
    return false;
}

bool parse_word(const char *word, const char *end, uint32_t *mask) {
    bool ok = true;
    if (parse_numbers(word, end, mask, &ok)) {
        return ok;
    }
    const auto len = static_cast<std::size_t>(end - word);
    if (parse_name(word, len, mask)) {
        return true;
    }
    char visible[80];
    make_visible(visible, sizeof visible, word, len);
    log(kLogWarning, "BAD_DEBUG_AREA",
        "\"%s\" names no debug area; use flag numbers 0 to 10, \"all\", or names such as \"avlist\"",
        visible);
    return false;
}

bool parse_areas(const char *list, uint32_t *mask) {
    bool ok = true;
    *mask = 0;
    for (const char *p = list; p != nullptr && *p != '\0';) {
        const char *end = p;
        while (*end != '\0' && !is_separator(*end)) {
            ++end;
        }
        if (end != p) {
            ok = parse_word(p, end, mask) && ok;
        }
        p = *end == '\0' ? end : end + 1;
    }
    return ok;
}

// ---- output ------------------------------------------------------------------

Sink choose_output() {
    Sink sink;
    const char *word = secure_getenv("AAA_DEBUG_OUTPUT");
    const bool known = parse_sink(word, &sink);
    if (!known) {
        log(kLogWarning, "BAD_SETTING",
            "AAA_DEBUG_OUTPUT is \"%.32s\", not stderr, syslog, journal or none; using stderr", word);
    }
    return sink == Sink::kUnset ? Sink::kStderr : sink;
}

Sink current_output() {
    Sink sink = g_output.load(std::memory_order_relaxed);
    if (sink == Sink::kUnset) {
        sink = choose_output();
        g_output.store(sink, std::memory_order_relaxed);
    }
    return sink;
}

// Time in UTC: local time needs the time zone lock, which may be held when a signal
// handler or a forked child traces.
std::size_t write_prefix(char *out, std::size_t size, uint32_t flag) {
    timespec now{};
    tm utc{};
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &utc);
    const int n = std::snprintf(
        out, size, "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ %d/%d aaa[%u %s]: ", utc.tm_year + 1900,
        utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, now.tv_nsec / 1000,
        static_cast<int>(getpid()), static_cast<int>(gettid()), flag, kAreas[flag]);
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

void emit_trace(uint32_t flag, const char *text, std::size_t len) {
    const Sink sink = current_output();
    char line[kLineSize];
    const std::size_t prefix = write_prefix(line, sizeof line, flag);
    const LineInfo info{7, "DEBUG", 0};
    while (len > 0 && text[len - 1] == '\n') {
        --len;
    }
    const char *end = text + len;
    for (const char *part = text; part <= end;) {
        const auto *feed =
            static_cast<const char *>(std::memchr(part, '\n', static_cast<std::size_t>(end - part)));
        const char *stop = feed != nullptr ? feed : end;
        const std::size_t n =
            make_visible(line + prefix, sizeof line - prefix, part, static_cast<std::size_t>(stop - part));
        emit(sink, info, line, prefix + n);
        part = stop + 1;
    }
}

// Reads the environment again.
void start_tracing() {
    uint32_t mask;
    parse_areas(secure_getenv("AAA_DEBUG"), &mask);
    g_output.store(Sink::kUnset, std::memory_order_relaxed);
    g_mask.store(mask, std::memory_order_relaxed);
}

// Tracing works as soon as the platform is loaded: a program that suppresses the
// library's load hook still gets its traces.
[[gnu::constructor]] void on_load() {
    start_tracing();
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

void aaa_debug(uint32_t flag, const char *format, ...) {
    const uint32_t mask = g_mask.load(std::memory_order_relaxed);
    if (flag >= AAA_PLATFORM_DEBUG_FLAGS) {
        report_bad_flag(flag);
        return;
    }
    if ((mask >> flag & 1u) == 0 || format == nullptr) {
        return;
    }
    const int saved_errno = errno;
    char text[kTextSize];
    va_list arguments;
    va_start(arguments, format);
    const std::size_t len = format_bounded(text, sizeof text, format, arguments);
    va_end(arguments);
    emit_trace(flag, text, len);
    errno = saved_errno;
}

int aaa_debugging(uint32_t flag) {
    return flag < AAA_PLATFORM_DEBUG_FLAGS
               ? static_cast<int>(g_mask.load(std::memory_order_relaxed) >> flag & 1u)
               : 0;
}

// This host's own function, also where another definition takes precedence.
[[gnu::alias("aaa_debugging"), gnu::visibility("hidden")]] int aaa_platform_own_debugging(uint32_t flag);

const uint32_t *aaa_debug_word(int (*debugging)(uint32_t flag)) {
    static_assert(std::atomic<uint32_t>::is_always_lock_free &&
                  sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
    return debugging == aaa_platform_own_debugging ? reinterpret_cast<const uint32_t *>(&g_mask) : nullptr;
}

cerrno aaa_debug_init(void) {
    // Once: the copy must not change under a thread that logs with it. A flag,
    // not a mutex, which could be taken in the other order with the loader's lock.
    if (!g_bad_flag_taken.exchange(true, std::memory_order_acquire) &&
        !visit_symbol(__builtin_return_address(0), "kel_msg_rec_aaa_invalid_debug_flag_getfn",
                      copy_bad_flag_record, nullptr)) {
        g_bad_flag_taken.store(false, std::memory_order_release);
    }
    start_tracing();
    return 0;
}

void aaa_debug_cleanup(void) {
    g_mask.store(0, std::memory_order_relaxed);
}

cerrno aaa_platform_debug_set(uint32_t flag, int on) {
    if (flag >= AAA_PLATFORM_DEBUG_FLAGS) {
        report_bad_flag(flag);
        return HOST_NO_SUCH_FLAG;
    }
    const uint32_t bit = 1u << flag;
    if (on != 0) {
        g_mask.fetch_or(bit, std::memory_order_relaxed);
    } else {
        g_mask.fetch_and(~bit, std::memory_order_relaxed);
    }
    return 0;
}

cerrno aaa_platform_debug_set_areas(const char *list) {
    uint32_t mask;
    const bool ok = parse_areas(list, &mask);
    g_mask.store(mask, std::memory_order_relaxed);
    return ok ? cerrno{0} : cerrno{HOST_NO_SUCH_FLAG};
}

uint32_t aaa_platform_debug_mask(void) {
    return g_mask.load(std::memory_order_relaxed);
}

const char *aaa_platform_debug_area(uint32_t flag) {
    return flag < AAA_PLATFORM_DEBUG_FLAGS ? kAreas[flag] : nullptr;
}

}  // extern "C"
