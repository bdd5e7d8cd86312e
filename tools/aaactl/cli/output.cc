// SPDX-License-Identifier: Apache-2.0
//
// Text, tables, JSON documents, colours and failures; exit statuses of result
// codes.

#include "cli/output.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "aaa/result_codes.h"
#include "base/logged_lines.hpp"
#include "cli/hidden_characters.hpp"
#include "platform/cerr.h"
#include "platform/sysdb.h"

namespace aaactl {
namespace {

constexpr std::string_view kReset = "\033[0m";

std::string_view escape_sequence(Style style) {
    switch (style) {
        case Style::plain:
            return "";
        case Style::strong:
            return "\033[1m";
        case Style::dim:
            return "\033[2m";
        case Style::good:
            return "\033[32m";
        case Style::bad:
            return "\033[31m";
        case Style::warning:
            return "\033[33m";
    }
    return "";
}

void write_all(FILE *stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
}

// Bytes of the character at the start of the text if it is beyond ASCII, well-formed
// and seen by a reader, else 0.
size_t visible_length(std::string_view text) {
    const CodePoint first = first_code_point(text);
    return first.value < 0x80 || is_hidden(first.value) ? 0 : first.length;
}

// Columns that a cell takes: escape sequences none, a UTF-8 sequence one.
size_t width(std::string_view cell) {
    size_t columns = 0;
    for (size_t i = 0; i < cell.size(); ++i) {
        if (cell[i] == '\033') {
            i = std::min(cell.find('m', i), cell.size());
        } else if ((static_cast<unsigned char>(cell[i]) & 0xc0u) != 0x80u) {
            ++columns;
        }
    }
    return columns;
}

std::string joined(const std::vector<std::string> &cells, const std::vector<size_t> &widths) {
    std::string text;
    for (size_t i = 0; i < cells.size(); ++i) {
        text += cells[i];
        if (i + 1 < cells.size()) {
            text.append(widths[i] - width(cells[i]) + 2, ' ');
        }
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

// Of syslog; higher ones are less severe.
constexpr uint32_t kError = 3;
constexpr uint32_t kWarning = 4;

// Lines of errors. Those of the command's own thread are about the command. The library's thread connects to
// the database too, and what it logs is about that only.
constinit service::LoggedLines g_own_lines;
constinit service::LoggedLines g_other_lines;
constinit service::LoggedLines g_settings;

// About a variable of the environment, such as "%AAA-PLATFORM-4-SYSDB : AAA_SYSDB_MAP_MIB=x is not ...". The
// command goes on, and whoever has set the variable should know that it has no effect.
bool is_about_setting(uint32_t severity, std::string_view line) noexcept {
    return severity == kWarning && service::logged_text(line).starts_with("AAA_");
}

// The texts of the lines, each once. What the library adds to a line of the platform says less.
std::vector<std::string> reasons_in(service::LoggedLines &lines) {
    std::vector<std::string> platform;
    std::vector<std::string> others;
    for (const std::string &line : lines.take()) {
        service::add_once(line.starts_with("%AAA-PLATFORM-") ? platform : others, service::logged_text(line));
    }
    return platform.empty() ? others : platform;
}

// Codes of the platform's database are 0x8081.... and 0x4081.... The message of a provider that cannot be
// loaded says all by itself.
bool is_of_database(cerrno rc) {
    return (rc >> 16 & 0x3fffu) == 0x0081u && rc != SYSDB_ERR_LIB_ABSENT;
}

// Of several threads that cannot open the database, one may have logged why.
std::vector<std::string> reasons_of(const Failure &failure) {
    std::vector<std::string> own = reasons_in(g_own_lines);
    return own.empty() && is_of_database(failure.rc()) ? reasons_in(g_other_lines) : own;
}

// The failure's own sentence, then why; a file that both name is named once.
std::string with_reason(const Failure &failure) {
    std::string message = failure.what();
    for (std::string reason : reasons_of(failure)) {
        const size_t colon = reason.find(": ");
        if (reason.starts_with('/') && colon != std::string::npos &&
            message.find(reason.substr(0, colon)) != std::string::npos) {
            reason = reason.substr(colon + 2);
        }
        message += ": " + reason;
    }
    return message;
}

}  // namespace

ExitCode exit_code_of(cerrno rc) {
    switch (rc) {
        case AAA_OK:
            return ExitCode::ok;
        case AAA_ERR_NOT_FOUND:
            return ExitCode::not_found;
        case AAA_ERR_NOT_CONNECTED:
        case AAA_ERR_SERVER_CONNECT_FAILED:
            return ExitCode::unavailable;
        case AAA_ERR_INVALID_MSG_SIZE:
        case AAA_ERR_INVALID_MSG_TYPE:
        case AAA_ERR_AVPAIR_PROCESSING:
            return ExitCode::bad_input;
        default:
            return ExitCode::failed;
    }
}

Failure::Failure(std::string_view what, cerrno rc) : Failure(exit_code_of(rc), what, rc) {}

Failure::Failure(ExitCode code, std::string_view what, cerrno rc)
    : code_(code), message_(std::string(what) + ": " + escaped(cerr_strerror(rc))), rc_(rc) {}

Failure Failure::with(const Json &document) const {
    Failure copy = *this;
    copy.document_ = std::make_shared<const Json>(document);
    return copy;
}

std::string escaped(std::string_view bytes, bool ascii_only) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        if (const size_t length = ascii_only ? 0 : visible_length(bytes.substr(i)); length != 0) {
            text += bytes.substr(i, length);
            i += length - 1;
        } else if (c == '\\') {
            text += "\\\\";
        } else if (c >= ' ' && c <= '~') {
            text += c;
        } else if (c == '\n' || c == '\t' || c == '\r') {
            text += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
        } else {
            text += "\\x" + hex(bytes.substr(i, 1));
        }
    }
    return text;
}

std::string hex(std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto value = static_cast<unsigned char>(c);
        text += digits[value >> 4];
        text += digits[value & 15u];
    }
    return text;
}

Output::Output(const OutputOptions &options)
    : options_(options),
      coloured_(options.colour == Colour::always),
      error_is_terminal_(isatty(STDERR_FILENO) == 1) {
    if (options.colour == Colour::automatic && isatty(STDOUT_FILENO) == 1) {
        const char *off = std::getenv("NO_COLOR");
        const char *terminal = std::getenv("TERM");
        coloured_ =
            (off == nullptr || *off == '\0') && (terminal == nullptr || std::string_view(terminal) != "dumb");
    }
}

void Output::result(const Json &document, const std::function<void()> &text) {
    end_progress();
    if (!options_.json) {
        text();
        return;
    }
    line(document.dump(2));
}

void Output::event(const Json &document, const std::function<void()> &text) {
    if (options_.json) {
        line(document.dump());
    } else {
        text();
    }
    std::fflush(stdout);  // a reader of a pipe gets each event at once
}

bool Output::is_lost() const {
    return std::ferror(stdout) != 0;
}

void Output::line(std::string_view text) {
    write_all(stdout, text);
    write_all(stdout, "\n");
}

void Output::table(const std::vector<std::string> &header,
                   const std::vector<std::vector<std::string>> &rows) {
    std::vector<size_t> widths;
    const auto measure = [&](const std::vector<std::string> &cells) {
        widths.resize(std::max(widths.size(), cells.size()));
        for (size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], width(cells[i]));
        }
    };
    measure(header);
    std::for_each(rows.begin(), rows.end(), measure);
    if (!header.empty()) {
        line(styled(Style::strong, joined(header, widths)));
    }
    for (const auto &row : rows) {
        line(joined(row, widths));
    }
}

std::string Output::styled(Style style, std::string_view text) const {
    if (!coloured_ || style == Style::plain || text.empty()) {
        return std::string(text);
    }
    return std::string(escape_sequence(style)) + std::string(text) + std::string(kReset);
}

std::string Output::secret(std::string_view bytes) const {
    return options_.show_secrets ? escaped(bytes) : std::string(kMask);
}

void Output::progress(std::string_view text) {
    if (error_is_terminal_) {
        write_all(stderr, "\r\033[K");
        write_all(stderr, text);
        std::fflush(stderr);
        progress_shown_ = true;
    }
}

void Output::end_progress() {
    if (progress_shown_) {
        write_all(stderr, "\r\033[K");
        progress_shown_ = false;
    }
}

void Output::hint(std::string_view text) {
    if (error_is_terminal_ && !options_.json) {
        note(text);
    }
}

void Output::note(std::string_view text) {
    end_progress();
    write_all(stderr, text);
    write_all(stderr, "\n");
}

void Output::failure(const Failure &failure) {
    const std::string message = with_reason(failure);
    note("aaactl: " + message);
    if (options_.json) {
        Json error = {{"message", message}, {"exit", static_cast<int>(failure.code())}};
        if (failure.rc() != 0) {
            error["code"] = failure.rc();
        }
        Json document = {{"error", error}};
        if (failure.document() != nullptr) {
            document.update(*failure.document());
        }
        line(document.dump(2));
    }
}

bool take_log_line(uint32_t severity, std::string_view line) noexcept {
    const char *log = std::getenv("AAA_LOG");
    const bool to_stderr = log != nullptr && std::strcmp(log, "stderr") == 0;
    if (log != nullptr && *log != '\0' && !to_stderr) {
        return false;
    }
    if (is_about_setting(severity, line) && !to_stderr) {
        g_settings.keep(line);
    } else if (severity <= kError) {
        (gettid() == getpid() ? g_own_lines : g_other_lines).keep(line);
    }
    return severity <= kError || !to_stderr;
}

bool has_log_lines() {
    return !g_own_lines.empty() || !g_other_lines.empty();
}

void forget_log_lines() {
    g_own_lines.take();
}

void print_log_lines() {
    for (service::LoggedLines *lines : {&g_own_lines, &g_settings}) {
        for (const std::string &text : reasons_in(*lines)) {
            std::fprintf(stderr, "aaactl: %s\n", text.c_str());
        }
    }
}

}  // namespace aaactl
