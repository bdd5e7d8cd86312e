// SPDX-License-Identifier: Apache-2.0
//
// Splits a format into its conversions, checks each argument and lets libc format
// it.

#include "testkit/fake_format.hpp"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "testkit/fake_state.hpp"

namespace fake::detail {
namespace {

// One conversion is formatted by libc with the very conversion that the
// caller wrote.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename T>
std::string one(const std::string &spec, T value) {
    const int n = std::snprintf(nullptr, 0, spec.c_str(), value);
    std::vector<char> text(static_cast<std::size_t>(n < 0 ? 0 : n) + 1);
    std::snprintf(text.data(), text.size(), spec.c_str(), value);
    return text.data();
}
#pragma GCC diagnostic pop

struct Args {
    va_list list;
};

std::string integer(const std::string &spec, const std::string &length, Args &args) {
    if (length == "l" || length == "ll" || length == "z" || length == "j" || length == "t") {
        return one(spec, va_arg(args.list, long));
    }
    return one(spec, va_arg(args.list, int));
}

std::string convert(const char *who, const char *format, const std::string &spec, const std::string &length,
                    Args &args) {
    switch (spec.back()) {
        case '%':
            return "%";
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            return integer(spec, length, args);
        case 'c':
            return one(spec, va_arg(args.list, int));
        case 'p':
            return one(spec, va_arg(args.list, void *));
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
            return one(spec, va_arg(args.list, double));
        case 's': {
            const char *const text = va_arg(args.list, const char *);
            if (text == nullptr) {
                problem(std::string(who) + " got a null for \"" + spec + "\" of \"" + format + '"');
                return "(null)";
            }
            return one(spec, text);
        }
        default:
            problem(std::string(who) + ": conversion \"" + spec + "\" of \"" + format + '"');
            return spec;
    }
}

// From the character after '%' up to the conversion letter; a '*' is replaced
// by its argument.
std::string conversion_text(const char *&p, std::string &length, Args &args) {
    std::string spec = "%";
    for (; *p != '\0' && std::strchr("-+ #0123456789.*", *p) != nullptr; ++p) {
        spec += *p == '*' ? std::to_string(va_arg(args.list, int)) : std::string(1, *p);
    }
    for (; *p != '\0' && std::strchr("hlzjt", *p) != nullptr; ++p) {
        length += *p;
    }
    spec += length;
    if (*p != '\0') {
        spec += *p++;
    }
    return spec;
}

}  // namespace

std::string format_text(const char *who, const char *format, va_list list) {
    if (format == nullptr) {
        problem(std::string(who) + " got a null format");
        return {};
    }
    Args args;
    va_copy(args.list, list);
    std::string text;
    for (const char *p = format; *p != '\0';) {
        if (*p != '%') {
            text += *p++;
            continue;
        }
        ++p;
        std::string length;
        const std::string spec = conversion_text(p, length, args);
        text += convert(who, format, spec, length, args);
    }
    va_end(args.list);
    return text;
}

}  // namespace fake::detail
