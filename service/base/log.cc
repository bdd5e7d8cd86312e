// SPDX-License-Identifier: Apache-2.0

#include "base/log.hpp"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string>

#include "platform/control.h"
#include "platform/logging.h"

namespace service {

namespace {

std::atomic<bool> debug_is_on = false;

kel_msg_rec_t record_of(kel_msg_limit_t *limit, Level level, const char *mnemonic) {
    kel_msg_rec_t record{};
    record.format = "%s";
    record.limit = limit;
    record.facility = "AAA";
    record.category = "SERVICE";
    record.mnemonic = mnemonic;
    record.severity = static_cast<std::uint32_t>(level) << 16;
    return record;
}

[[gnu::format(printf, 4, 0)]] void write_line(kel_msg_limit_t *limit, Level level, const char *mnemonic,
                                              const char *format, va_list arguments) {
    if (level == Level::kDebug && !debug_is_on) {
        return;
    }
    const kel_msg_rec_t record = record_of(limit, level, mnemonic);
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    kel_errmsg(&record, static_cast<std::uint32_t>(level), text);
}

[[gnu::format(printf, 5, 0)]] void write_request_line(kel_msg_limit_t *limit, Level level,
                                                      const char *mnemonic, const LogContext &context,
                                                      const char *format, va_list arguments) {
    if (level == Level::kDebug && !debug_is_on) {
        return;
    }
    const std::string id = context.id != 0 ? id_text(context.id) : "";
    const std::string user(context.user);
    const std::string subject(context.subject);
    const std::string pid = context.client_pid != 0 ? std::to_string(context.client_pid) : "";
    const auto value = [](const char *text) { return *text != '\0' ? text : nullptr; };
    const aaa_platform_log_field_t fields[] = {{"AAA_LOGIN_ID", value(id.c_str())},
                                               {"AAA_USER", value(user.c_str())},
                                               {"AAA_STEP", value(context.step)},
                                               {"AAA_SUBJECT", value(subject.c_str())},
                                               {"AAA_CLIENT_PID", value(pid.c_str())}};
    char text[1024];
    const int prefix = id.empty() ? 0 : std::snprintf(text, sizeof text, "[%s] ", id.c_str());
    std::vsnprintf(text + prefix, sizeof text - static_cast<std::size_t>(prefix), format, arguments);
    const kel_msg_rec_t record = record_of(limit, level, mnemonic);
    aaa_platform_log(&record, static_cast<std::uint32_t>(level), fields, std::size(fields), text);
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

void log(Level level, const char *mnemonic, const LogContext &context, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_request_line(nullptr, level, mnemonic, context, format, arguments);
    va_end(arguments);
}

void log_limited(kel_msg_limit_t &limit, Level level, const char *mnemonic, const LogContext &context,
                 const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_request_line(&limit, level, mnemonic, context, format, arguments);
    va_end(arguments);
}

}  // namespace service
