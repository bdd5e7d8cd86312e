// SPDX-License-Identifier: Apache-2.0

#include "base/log.hpp"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "platform/logging.h"

namespace service {

namespace {

std::atomic<bool> debug_is_on = false;

void write_line(kel_msg_limit_t *limit, Level level, const char *mnemonic, const char *format,
                va_list arguments) {
    if (level == Level::kDebug && !debug_is_on) {
        return;
    }
    const auto number = static_cast<std::uint32_t>(level);
    kel_msg_rec_t record{};
    record.format = "%s";
    record.limit = limit;
    record.facility = "AAA";
    record.category = "SERVICE";
    record.mnemonic = mnemonic;
    record.severity = number << 16;
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    kel_errmsg(&record, number, text);
}

}  // namespace

void log_debug(bool on) {
    debug_is_on = on;
}

void log(Level level, const char *mnemonic, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(nullptr, level, mnemonic, format, arguments);
    va_end(arguments);
}

void log_limited(kel_msg_limit_t &limit, Level level, const char *mnemonic, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(&limit, level, mnemonic, format, arguments);
    va_end(arguments);
}

}  // namespace service
