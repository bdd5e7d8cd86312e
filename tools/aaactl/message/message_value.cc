// SPDX-License-Identifier: Apache-2.0
//
// Quotes, digits, addresses and zeros; which values are masked.

#include "message/message_value.hpp"

#include <algorithm>
#include <charconv>

#include "cli/output.hpp"
#include "dictionary/attributes.hpp"

namespace aaactl {
namespace {

constexpr size_t kMostZeros = 1 << 20;  // longer than any message

// No refusal here quotes the value: it may be a secret.

uint32_t format_of(uint32_t type) {
    return type <= AAA_ATTR_MAX ? aaa_table[type].format : uint32_t{AAA_FORMAT_BINARY};
}

bool only_zeros(std::string_view bytes) {
    return bytes.find_first_not_of('\0') == std::string_view::npos;
}

int digit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

// The character of the escape sequence at `at`; moves `at` past it.
char unescaped(std::string_view token, size_t &at) {
    const char kind = at < token.size() ? token[at++] : '\0';
    switch (kind) {
        case 'n':
            return '\n';
        case 't':
            return '\t';
        case 'r':
            return '\r';
        case '\\':
        case '"':
            return kind;
        case 'x':
            if (at + 2 <= token.size() && digit(token[at]) >= 0 && digit(token[at + 1]) >= 0) {
                at += 2;
                return static_cast<char>(digit(token[at - 2]) * 16 + digit(token[at - 1]));
            }
            [[fallthrough]];
        default:
            throw Refused{"unknown escape sequence; use \\xNN, \\n, \\t, \\r, \\\\ or \\\""};
    }
}

std::string zeros(std::string_view count) {
    return std::string(number_in(count, kMostZeros), '\0');
}

}  // namespace

uint32_t network_number(std::string_view four_bytes) {
    uint32_t value = 0;
    for (const char c : four_bytes) {
        value = value << 8 | static_cast<unsigned char>(c);
    }
    return value;
}

std::string network_bytes(uint32_t number) {
    std::string bytes;
    for (unsigned shift = 32; shift != 0; shift -= 8) {
        bytes += static_cast<char>(number >> (shift - 8) & 0xff);
    }
    return bytes;
}

ValueForm form_of(const Pair &pair) {
    if (pair.value.size() == 4 && travels_as_number(pair.type)) {
        return format_of(pair.type) == AAA_FORMAT_IPADDR ? ValueForm::address : ValueForm::number;
    }
    const bool text = pair.value.empty() ||
                      (attribute_row(pair.type) != nullptr && format_of(pair.type) == AAA_FORMAT_STRING);
    return text ? ValueForm::text : ValueForm::hex;
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : escaped(text)) {
        result += c == '"' ? "\\\"" : std::string(1, c);
    }
    return result + "\"";
}

std::string bytes_text(std::string_view bytes) {
    return only_zeros(bytes) ? "zeros(" + std::to_string(bytes.size()) + ")" : "hex:" + hex(bytes);
}

std::string value_text(const Pair &pair) {
    switch (form_of(pair)) {
        case ValueForm::number:
            return std::to_string(network_number(pair.value));
        case ValueForm::address: {
            char dotted[16];
            aaa_util_format_ipaddr(network_number(pair.value), dotted);
            return dotted;
        }
        case ValueForm::text:
            return quoted(pair.value);
        case ValueForm::hex:
            break;
    }
    return "hex:" + hex(pair.value);
}

Shown shown_value(const Pair &pair, service::TextMask &mask, bool show_secrets) {
    if (show_secrets) {
        return {value_text(pair), false};
    }
    if (is_secret(pair.type) && !pair.value.empty()) {
        return {std::string(kMask), true};
    }
    if (form_of(pair) != ValueForm::text) {
        return {value_text(pair), false};
    }
    const std::string_view value = pair.value;
    const std::string_view text = value.substr(0, value.find('\0'));
    const std::string_view rest = value.substr(text.size());
    // What follows the end of a text was not written on purpose.
    const std::string safe =
        mask.shown(pair.type, text) + (only_zeros(rest) ? std::string(rest) : '\0' + std::string(kMask));
    return {quoted(safe), safe != value};
}

Shown shown_leftover(std::string_view bytes, bool show_secrets) {
    const bool shown = show_secrets || only_zeros(bytes);
    return {shown ? bytes_text(bytes) : std::string(kMask), !shown};
}

std::string unquoted(std::string_view token) {
    if (token.size() < 2 || token.front() != '"' || token.back() != '"') {
        throw Refused{"a text begins and ends with a quotation mark"};
    }
    token = token.substr(1, token.size() - 2);
    std::string text;
    for (size_t at = 0; at < token.size();) {
        const char c = token[at++];
        if (c == '"') {
            throw Refused{"write \\\" for a quotation mark inside of a text"};
        }
        text += c == '\\' ? unescaped(token, at) : c;
    }
    return text;
}

std::string hex_bytes(std::string_view digits) {
    std::string bytes;
    for (size_t at = 0; at + 2 <= digits.size(); at += 2) {
        if (digit(digits[at]) < 0 || digit(digits[at + 1]) < 0) {
            throw Refused{"no hexadecimal digits at character " + std::to_string(at + 1)};
        }
        bytes += static_cast<char>(digit(digits[at]) * 16 + digit(digits[at + 1]));
    }
    if (digits.size() % 2 != 0) {
        throw Refused{"an odd number of hexadecimal digits"};
    }
    return bytes;
}

std::string bytes_of(std::string_view token) {
    if (token == kMask) {
        throw Refused{"the value is masked; decode with --show-secrets to encode it again"};
    }
    if (token.starts_with('"')) {
        return unquoted(token);
    }
    if (token.starts_with("hex:")) {
        return hex_bytes(token.substr(4));
    }
    if (token.starts_with("zeros(") && token.ends_with(')')) {
        return zeros(token.substr(6, token.size() - 7));
    }
    throw Refused{
        "a value is a \"text\", hex:... or zeros(N), or a number or address for an attribute of that type"};
}

uint64_t number_in(std::string_view token, uint64_t most) {
    const auto number = number_of(token);
    if (!number || *number > most) {
        throw Refused{"a number from 0 to " + std::to_string(most) + " is needed"};
    }
    return *number;
}

std::optional<uint32_t> address_of(std::string_view dotted) {
    uint32_t address = 0;
    for (int i = 0; i < 4; ++i) {
        const size_t dot = i < 3 ? dotted.find('.') : dotted.size();
        const std::string_view part = dotted.substr(0, dot);
        unsigned value = 0;
        const auto [stop, error] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (dot == std::string_view::npos || part.empty() || part.size() > 3 || error != std::errc{} ||
            stop != part.data() + part.size() || value > 255) {
            return std::nullopt;
        }
        address = address << 8 | value;
        dotted.remove_prefix(std::min(dot + 1, dotted.size()));
    }
    return address;
}

std::string value_of(std::string_view token, uint32_t type) {
    const bool number = !token.empty() && token.front() >= '0' && token.front() <= '9';
    if (!number) {
        return bytes_of(token);
    }
    if (const auto address = address_of(token)) {
        if (format_of(type) != AAA_FORMAT_IPADDR) {
            throw Refused{"an attribute of type " + std::to_string(type) + " is not an IPv4 address"};
        }
        return network_bytes(*address);
    }
    const auto value = static_cast<uint32_t>(number_in(token, UINT32_MAX));
    if (!travels_as_number(type)) {
        throw Refused{"an attribute of type " + std::to_string(type) +
                      " is not an integer; write \"text\" or hex:..."};
    }
    return network_bytes(value);
}

}  // namespace aaactl
