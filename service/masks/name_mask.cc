// SPDX-License-Identifier: Apache-2.0

#include "masks/name_mask.hpp"

#include <algorithm>

namespace service {

namespace {

constexpr std::size_t kShortest = 4;    // that is looked for within words
constexpr std::size_t kEnough = 64;     // of a long name: the time for a text has a limit
constexpr std::size_t kLongText = 250;  // an attribute of RADIUS ends soon
constexpr std::string_view kCut = "...";

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return result;
}

bool is_word_byte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (static_cast<unsigned char>(c) & 0x80) != 0;
}

bool is_word_at(std::string_view text, std::size_t at, std::size_t length) {
    return (at == 0 || !is_word_byte(text[at - 1])) &&
           (at + length == text.size() || !is_word_byte(text[at + length]));
}

// Texts of servers have question marks in place of control characters.
bool is_same(char shown, char sent) {
    const auto byte = static_cast<unsigned char>(sent);
    return shown == sent || (shown == '?' && (byte < ' ' || byte >= 0x7f));
}

// How many bytes both begin with.
std::size_t common(std::string_view text, std::string_view form) {
    std::size_t length = 0;
    while (length < text.size() && length < form.size() && is_same(text[length], form[length])) {
        ++length;
    }
    return length;
}

}  // namespace

NameMask::NameMask(const std::string &name, const std::function<bool(const std::string &)> &may_show) {
    if (name.empty() || may_show(name)) {
        return;
    }
    const std::size_t at_sign = name.rfind('@'), backslash = name.find('\\');
    for (const std::string &form : {name, at_sign != std::string::npos ? name.substr(0, at_sign) : "",
                                    backslash != std::string::npos ? name.substr(backslash + 1) : ""}) {
        if (!form.empty() && !may_show(form)) {
            forms_.push_back(lower(form));
        }
    }
}

// The length of the form of the name that begins here; 0: none does.
std::size_t NameMask::found_at(std::string_view text, std::size_t at) const {
    const bool is_cut = text.ends_with(kCut) || text.size() >= kLongText;
    const std::size_t end = text.size() - (text.ends_with(kCut) ? kCut.size() : 0);
    for (const std::string &form : forms_) {
        const std::size_t length = common(text.substr(at), form);
        if (length >= std::min(form.size(), kEnough) &&
            (form.size() >= kShortest || is_word_at(text, at, length))) {
            return length;
        }
        if (is_cut && length >= kShortest && at + length >= end) {
            return length;
        }
    }
    return 0;
}

std::string NameMask::shown(std::string_view text, std::string_view mask) const {
    if (forms_.empty()) {
        return std::string(text);
    }
    const std::string plain = lower(text);
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = found_at(plain, at);
        if (length > 0) {
            out += mask;
            at += length;
        } else {
            out += text[at++];
        }
    }
    return out;
}

}  // namespace service
