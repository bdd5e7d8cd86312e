// SPDX-License-Identifier: Apache-2.0

#include "groups/server_text.hpp"

namespace service {

namespace {

constexpr std::size_t kMostForUser = 4096;
constexpr std::size_t kMostForLog = 256;
constexpr std::string_view kCut = "...";

// The second byte of U+0080 to U+009F, which terminals take for control characters too.
bool is_wide_control(unsigned char first, unsigned char second) {
    return first == 0xc2 && second >= 0x80 && second <= 0x9f;
}

std::string filtered(std::string_view text, std::size_t most, bool keeps_lines) {
    const bool is_cut = text.size() > most;
    std::string out(text.substr(0, most));
    for (std::size_t i = 0; i < out.size(); ++i) {
        const auto byte = static_cast<unsigned char>(out[i]);
        const bool is_line = byte == '\n' || byte == '\t';
        const bool is_wide =
            i + 1 < out.size() && is_wide_control(byte, static_cast<unsigned char>(out[i + 1]));
        if (((byte < ' ' || byte == 0x7f) && !(keeps_lines && is_line)) || is_wide) {
            out[i] = keeps_lines && byte == '\r' ? ' ' : '?';
            if (is_wide) {
                out[++i] = '?';
            }
        }
    }
    return is_cut ? out.append(kCut) : out;
}

}  // namespace

std::string text_for_user(std::string_view text) {
    // Servers end their lines with either; a prompt that ends in a line end is none.
    std::string lines;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') {
            lines += text[i];
        }
    }
    return filtered(lines, kMostForUser, true);
}

std::string text_for_log(std::string_view text) {
    return filtered(text, kMostForLog, false);
}

}  // namespace service
