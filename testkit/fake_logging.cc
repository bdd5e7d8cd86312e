// SPDX-License-Identifier: Apache-2.0
//
// Logging and tracing of the fake platform.

#include "platform/logging.h"

#include <cstdarg>
#include <cstdlib>

#include "testkit/fake_format.hpp"
#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

namespace fake {
namespace {

using detail::Access;
using detail::Call;
using detail::Journal;

struct Logging {
    std::vector<Trace> traces;
    std::vector<Log> logs;
    uint64_t enabled = 0;
};

Logging &logging() {
    static Logging &instance = *new Logging;
    return instance;
}

// The first 32 flags once more, for callers that look at them instead of asking.
constinit uint32_t g_word = 0;

void enable(uint64_t flags) {
    logging().enabled = flags;
    __atomic_store_n(&g_word, static_cast<uint32_t>(flags), __ATOMIC_RELAXED);
}

void check_record(const kel_msg_rec_t &record, uint32_t severity) {
    if (record.severity != severity << 16) {
        detail::problem("kel_errmsg with severity " + std::to_string(severity) + " for " + record.mnemonic);
    }
}

}  // namespace

namespace detail {
void reset_logging() {
    const Access access;
    logging().traces.clear();
    logging().logs.clear();
}
}  // namespace detail

void enable_tracing(uint32_t flag, bool on) {
    const Access access;
    const uint64_t bit = uint64_t{1} << (flag % 64);
    enable(on ? logging().enabled | bit : logging().enabled & ~bit);
}

void disable_all_tracing() {
    const Access access;
    enable(0);
}

bool has_debug_word() {
    return std::getenv("AAA_FAKE_DEBUG_WORD") != nullptr;
}

std::vector<Trace> traces() {
    const Access access;
    return logging().traces;
}

std::vector<std::string> traces_of(uint32_t flag) {
    const Access access;
    std::vector<std::string> texts;
    for (const Trace &trace : logging().traces) {
        if (trace.flag == flag) {
            texts.push_back(trace.text);
        }
    }
    return texts;
}

std::vector<Log> logs() {
    const Access access;
    return logging().logs;
}

std::vector<std::string> log_texts() {
    const Access access;
    std::vector<std::string> texts;
    for (const Log &log : logging().logs) {
        texts.push_back(log.text);
    }
    return texts;
}

}  // namespace fake

using fake::detail::Call;
using fake::detail::Journal;

void kel_errmsg(const void *record, uint32_t severity, ...) {
    Call call(Journal::no, "kel_errmsg");
    if (record == nullptr) {
        fake::detail::problem("kel_errmsg with a null record");
        return;
    }
    const auto *const rec = static_cast<const kel_msg_rec_t *>(record);
    fake::check_record(*rec, severity);
    va_list args;
    va_start(args, severity);
    std::string text = fake::detail::format_text("kel_errmsg", rec->format, args);
    va_end(args);
    fake::logging().logs.push_back({rec, severity, rec->mnemonic, std::move(text)});
}

void aaa_debug(uint32_t flag, const char *format, ...) {
    Call call(Journal::no, "aaa_debug");
    va_list args;
    va_start(args, format);
    std::string text = fake::detail::format_text("aaa_debug", format, args);
    va_end(args);
    fake::logging().traces.push_back({flag, std::move(text)});
}

int aaa_debugging(uint32_t flag) {
    Call call(Journal::no, "aaa_debugging");
    constexpr int kOn = 2;  // any number but 0 means on
    return flag < 64 && (fake::logging().enabled >> flag & 1) != 0 ? kOn : 0;
}

// Called before main().
const uint32_t *aaa_debug_word(int (*)(uint32_t)) {
    return fake::has_debug_word() ? &fake::g_word : nullptr;
}

cerrno aaa_debug_init(void) {
    Call call("aaa_debug_init");
    return call.scripted().value_or(0);
}

void aaa_debug_cleanup(void) {
    const Call call("aaa_debug_cleanup");
}
