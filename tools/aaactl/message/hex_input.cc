// SPDX-License-Identifier: Apache-2.0
//
// Reads files whole, and hexadecimal text line by line.

#include "message/hex_input.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "cli/output.hpp"
#include "dictionary/attributes.hpp"

namespace aaactl {
namespace {

constexpr size_t kMostInput = 64u << 20;

Failure unreadable(const std::string &name) {
    return {errno == ENOENT ? ExitCode::not_found : ExitCode::bad_input, name + ": " + std::strerror(errno)};
}

std::string read_all(FILE *stream, const std::string &name) {
    std::string bytes;
    char chunk[65536];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, stream)) != 0) {
        bytes.append(chunk, n);
        if (bytes.size() > kMostInput) {
            throw Failure(ExitCode::bad_input, name + ": more than 64 MiB");
        }
    }
    if (std::ferror(stream) != 0) {
        throw unreadable(name);
    }
    return bytes;
}

bool is_digit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

struct Offset {
    uint64_t value;
    size_t size;  // characters
};

// A number of four digits or more at the beginning of the line.
std::optional<Offset> leading_number(std::string_view line) {
    size_t size = 0;
    while (size < line.size() && is_digit(line[size])) {
        ++size;
    }
    const auto value =
        size >= 4 && size <= 16 ? number_of("0x" + std::string(line.substr(0, size))) : std::nullopt;
    return value ? std::optional(Offset{*value, size}) : std::nullopt;
}

class Dump {
  public:
    void line(std::string_view line);
    std::string take() { return std::move(bytes_); }

  private:
    std::string_view without_offset(std::string_view line);
    void digits(std::string_view text);

    std::string bytes_;
    bool offsets_ = false;
    uint64_t base_ = 0;  // offset of the first line's bytes
};

struct BadLine {
    std::string why;
};

// The part of a line that holds bytes.
std::string_view Dump::without_offset(std::string_view line) {
    const auto number = leading_number(line);
    if (!number) {
        return line;
    }
    const std::string_view rest = line.substr(number->size);
    if (rest.starts_with(':')) {
        base_ = bytes_.empty() ? number->value : base_;
        if (number->value != base_ + bytes_.size()) {
            throw BadLine{"the offset is not that of the next byte, " +
                          std::to_string(base_ + bytes_.size()) + ": a line is missing"};
        }
        const size_t begin = std::min(rest.find_first_not_of(" \t", 1), rest.size());
        return rest.substr(begin, rest.find("  ", begin) - begin);
    }
    const bool separate = rest.size() > 2 && is_blank(rest[0]) && is_blank(rest[1]);
    const bool last = rest.empty() && offsets_;
    if (number->value != bytes_.size() || (!separate && !last)) {
        return line;
    }
    offsets_ = true;
    return rest;
}

void Dump::digits(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const bool prefix =
            text[at] == '0' && at + 1 < text.size() && (text[at + 1] == 'x' || text[at + 1] == 'X');
        if (prefix) {
            at += 2;
        } else if (is_blank(text[at]) || text[at] == ',' || text[at] == ':' || text[at] == '-') {
            ++at;
        } else if (at + 1 < text.size() && is_digit(text[at]) && is_digit(text[at + 1])) {
            bytes_ += static_cast<char>(*number_of("0x" + std::string(text.substr(at, 2))));
            at += 2;
        } else {
            throw BadLine{is_digit(text[at])
                              ? "a single hexadecimal digit; bytes have two"
                              : "'" + escaped(text.substr(at, 1)) + "' is not a hexadecimal digit"};
        }
    }
}

void Dump::line(std::string_view line) {
    if (line == "*") {
        throw BadLine{"repeated lines are missing from the dump; create it with -v"};
    }
    line = line.substr(0, line.find_first_of("#;|"));
    digits(without_offset(line.substr(0, line.find_last_not_of(" \t\r") + 1)));
}

}  // namespace

std::string read_input(const std::string &file) {
    if (file == "-") {
        return read_all(stdin, "standard input");
    }
    errno = 0;
    const std::unique_ptr<FILE, int (*)(FILE *)> stream(std::fopen(file.c_str(), "rbe"), std::fclose);
    if (!stream) {
        throw unreadable(escaped(file));
    }
    return read_all(stream.get(), escaped(file));
}

std::string bytes_of_hex(std::string_view text) {
    Dump dump;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        try {
            dump.line(text.substr(0, end));
        } catch (const BadLine &bad) {
            throw Failure(ExitCode::bad_input,
                          "hexadecimal text, line " + std::to_string(number) + ": " + bad.why);
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return dump.take();
}

bool looks_like_text(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char c) { return c == '\n' || c == '\r' || c == '\t' || (c >= ' ' && c <= '~'); });
}

}  // namespace aaactl
