// SPDX-License-Identifier: Apache-2.0
//
// Text as log lines show it. Texts come from users, peers and callers: what a terminal
// or a reader of the log could take for a line feed, a control sequence or another order
// of the characters is shown as an escape.

#include "log.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace aaaplatform {

namespace {

struct Range {
    uint32_t first;
    uint32_t last;
};

// Above U+007F: second set of control characters, separators of lines and paragraphs,
// controls of the writing direction, and what is invisible. In ascending order.
constexpr Range kHidden[] = {{0x80, 0x9f},       {0xad, 0xad},       {0x34f, 0x34f},     {0x600, 0x605},
                             {0x61c, 0x61c},     {0x6dd, 0x6dd},     {0x70f, 0x70f},     {0x890, 0x891},
                             {0x8e2, 0x8e2},     {0x115f, 0x1160},   {0x17b4, 0x17b5},   {0x180b, 0x180f},
                             {0x200b, 0x200f},   {0x2028, 0x202e},   {0x2060, 0x206f},   {0x3164, 0x3164},
                             {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},   {0xffa0, 0xffa0},   {0xfff0, 0xfffb},
                             {0x110bd, 0x110bd}, {0x110cd, 0x110cd}, {0x13430, 0x1343f}, {0x1bca0, 0x1bca3},
                             {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff}};

bool is_hidden(uint32_t c) {
    for (const Range &range : kHidden) {
        if (c <= range.last) {
            return c >= range.first;
        }
    }
    return false;
}

struct Character {
    uint32_t code;
    std::size_t bytes;  // 0: the first byte belongs to no character
};

// The lead byte decides the number of bytes and the smallest code that needs as many.
Character decode(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t more = lead < 0xc2 ? 0 : lead < 0xe0 ? 1 : lead < 0xf0 ? 2 : lead < 0xf5 ? 3 : 0;
    if (more == 0 || more >= text.size()) {
        return {lead, 0};
    }
    uint32_t code = lead & (0x3fu >> more);
    for (std::size_t i = 1; i <= more; ++i) {
        if ((byte(i) & 0xc0u) != 0x80) {
            return {lead, 0};
        }
        code = code << 6 | (byte(i) & 0x3fu);
    }
    constexpr uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    const bool valid = code >= kSmallest[more] && code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
    return {valid ? code : lead, valid ? more + 1 : 0};
}

bool is_plain(const Character &c, const char *also_escaped) {
    if (c.bytes != 1) {
        return c.bytes > 1 && !is_hidden(c.code);
    }
    const bool printable = (c.code >= 0x20 && c.code != 0x7f) || c.code == '\t';
    return printable && std::strchr(also_escaped, static_cast<int>(c.code)) == nullptr;
}

using Escape = std::array<char, 16>;

std::string_view escape(const Character &c, Escape &room) {
    if (c.code == '\n') {
        return "\\n";
    }
    const int n = c.bytes > 1 ? std::snprintf(room.data(), room.size(), "\\u{%x}", c.code)
                              : std::snprintf(room.data(), room.size(), "\\x%02x", c.code);
    return {room.data(), static_cast<std::size_t>(n)};
}

}  // namespace

std::size_t make_visible(char *out, std::size_t size, const char *text, std::size_t len,
                         const char *also_escaped) noexcept {
    constexpr std::string_view kCut = "...";
    std::string_view rest(text, len);
    std::size_t n = 0;
    std::size_t cut = 0;  // where the mark of a cut text fits
    while (!rest.empty()) {
        Escape room;
        const Character c = decode(rest);
        const std::size_t taken = c.bytes == 0 ? 1 : c.bytes;
        const std::string_view piece = is_plain(c, also_escaped) ? rest.substr(0, taken) : escape(c, room);
        if (n + kCut.size() < size) {
            cut = n;
        }
        if (n + piece.size() >= size) {
            n = cut + kCut.copy(out + cut, size - 1 - cut);
            break;
        }
        std::memcpy(out + n, piece.data(), piece.size());
        n += piece.size();
        rest.remove_prefix(taken);
    }
    out[n] = '\0';
    return n;
}

}  // namespace aaaplatform
